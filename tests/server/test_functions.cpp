// The library of functions of these tests, in place of the store's: what is tested here
// knows nothing of what the functions do.
#include <hiredis/hiredis.h>

#include "protocol.h"

namespace vu::store {

std::string_view function_library() {
  return R"lua(#!lua name=vu_connection_test
redis.register_function('test_push', function(keys, args)
  return redis.call('RPUSH', keys[1], args[1])
end)
redis.register_function{function_name = 'test_size', flags = {'no-writes'},
  callback = function(keys, args)
    return redis.call('LLEN', keys[1])
  end}
)lua";
}

void append_command(std::string& to, const std::vector<std::string_view>& words) {
  to += '*' + std::to_string(words.size()) + "\r\n";
  for (const std::string_view word : words) {
    to += '$' + std::to_string(word.size()) + "\r\n";
    to.append(word);
    to += "\r\n";
  }
}

bool says_function_is_missing(const redisReply& reply) {
  return reply.type == REDIS_REPLY_ERROR &&
         std::string_view(reply.str, reply.len) == "ERR Function not found";
}

}  // namespace vu::store
