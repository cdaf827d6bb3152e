// Replies of a server, read with care: whatever a reply is, reading it is safe.
#pragma once

#include <hiredis/read.h>

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string_view>

struct redisReply;

namespace vu::store {

// The reply is not what its command replies.
class BadReply : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Views into `reply`; each throws BadReply where the reply is something else.
bool is_nil(const redisReply& reply);
std::string_view text_of(const redisReply& reply);
std::int64_t integer_of(const redisReply& reply);
std::size_t size_of(const redisReply& reply);  // of an array
const redisReply& element_of(const redisReply& reply, std::size_t index);

// Whole texts as numbers. Throw BadReply.
std::int64_t to_integer(std::string_view text);
double to_score(std::string_view text);
std::uint32_t to_field_number(std::string_view text);

}  // namespace vu::store
