// Requests as commands of the server: mostly calls of the functions in functions/, whose
// arguments are described there.
#include <algorithm>
#include <charconv>
#include <unordered_map>

#include "../identity.h"
#include "../recycled.h"
#include "../wire.h"
#include "command_text.h"
#include "key_names.h"
#include "protocol.h"

namespace vu::store {

namespace {

const char* function_of(Command command) {
  switch (command) {
    case Command::kGet:
      return "vu2_get";
    case Command::kIncr:
      return "vu2_incr";
    case Command::kSetnx:
      return "vu2_setnx";
    case Command::kSet:
      return "vu2_set";
    case Command::kSetow:
      return "vu2_setow";
    case Command::kDelow:
      return "vu2_delow";
    case Command::kDel:
      return "vu2_del";
    case Command::kHmset:
      return "vu2_hmset";
    case Command::kHmsetnx:
      return "vu2_hmsetnx";
    case Command::kHmupdate:
      return "vu2_hmupdate";
    case Command::kHmget:
    case Command::kHgetall:
      return "vu2_hmget";
    case Command::kScan:
    case Command::kScanIndex:
      return "vu2_scan";
    case Command::kLpush:
      return "vu2_lpush";
    case Command::kRpush:
      return "vu2_rpush";
    case Command::kLpop:
      return "vu2_lpop";
    case Command::kRpop:
      return "vu2_rpop";
    case Command::kLlen:
      return "vu2_llen";
    case Command::kLset:
      return "vu2_lset";
    case Command::kLrem:
      return "vu2_lrem";
    case Command::kLinsert:
      return "vu2_linsert";
    case Command::kLrange:
      return "vu2_lrange";
    case Command::kSadd:
      return "vu2_sadd";
    case Command::kSrem:
      return "vu2_srem";
    case Command::kSmembers:
      return "vu2_smembers";
    case Command::kScard:
      return "vu2_scard";
    case Command::kSismember:
      return "vu2_sismember";
    case Command::kZadd:
      return "vu2_zadd";
    case Command::kZrem:
      return "vu2_zrem";
    case Command::kZcard:
      return "vu2_zcard";
    case Command::kZrank:
      return "vu2_zrank";
    case Command::kZscore:
      return "vu2_zscore";
    case Command::kZcount:
      return "vu2_zcount";
    case Command::kZrange:
      return "vu2_zrange";
    case Command::kZrangebyscore:
      return "vu2_zrangebyscore";
    case Command::kZremrangebyscore:
      return "vu2_zremrangebyscore";
    case Command::kZremrangebyrank:
      return "vu2_zremrangebyrank";
    case Command::kPexpire:
      return "vu2_pexpire";
    case Command::kPexpireFields:
      return "vu2_pexpire_fields";
    case Command::kDelExpire:
      return "vu2_del_expire";
    case Command::kPdel:
      return "vu2_pdel";
    case Command::kPublish:
    case Command::kSubscribe:
    case Command::kUnsubscribe:
      break;
  }
  return "";
}

bool is_on_a_level(Command command) {
  switch (command) {
    case Command::kScan:
    case Command::kScanIndex:
    case Command::kPexpire:
    case Command::kPexpireFields:
    case Command::kDelExpire:
    case Command::kPdel:
      return true;
    default:
      return false;
  }
}

// The bytes of a request's values, for a guess at the size of its command.
std::size_t bytes_of(const Request& request) {
  std::size_t bytes =
      256 + 2 * request.identity.size() + request.value.size() + request.pivot.size();
  for (const Field& field : request.fields) bytes += 32 + field.records.size();
  for (std::size_t i = 0; i < request.members.size(); ++i) bytes += 48 + request.members[i].size();
  return bytes;
}

void add_flags(CommandText& text, const Request& request) {
  if (request.quiet) {
    text.add(request.keep_lifetime ? "qk" : "q");
  } else {
    text.add(request.keep_lifetime ? "k" : "");
  }
}

void add_counter(CommandText& text, const Request& request) {
  const Counter& counter = request.type->counter;
  text.add_integer(counter.number);
  switch (counter.form) {
    case IntegerForm::kPlain:
      text.add("p");
      break;
    case IntegerForm::kZigzag:
      text.add("z");
      break;
    case IntegerForm::kFixed32:
      text.add("4");
      break;
    case IntegerForm::kFixed64:
      text.add("8");
      break;
  }
  text.add(counter.is_signed ? "s" : "u").add(counter.is_32_bit ? "4" : "8");
  const auto initial = static_cast<std::uint64_t>(counter.initial);
  text.add_integer(static_cast<std::int64_t>(initial >> 32));
  text.add_integer(static_cast<std::int64_t>(initial & 0xffffffffU));
  // What is stored where there is nothing.
  std::string fresh = without(request.value, counter.number);
  std::int64_t value = 0;
  text.add(increment(fresh, counter, value) ? fresh : std::string());
}

void add_fields(CommandText& text, const Request& request) {
  for (const Field& field : request.fields) {
    text.add_integer(field.number).add(field.records);
  }
}

// The places of the members, each once: the last of several equal ones.
std::vector<std::size_t> last_places(const ByteList& members) {
  std::vector<std::size_t> places;
  places.reserve(members.size());
  if (members.size() == 1) {
    places.push_back(0);
    return places;
  }
  std::unordered_map<std::string_view, std::size_t> last;
  last.reserve(members.size());
  for (std::size_t i = 0; i < members.size(); ++i) last[members[i]] = i;
  for (std::size_t i = 0; i < members.size(); ++i) {
    if (last[members[i]] == i) places.push_back(i);
  }
  return places;
}

// What a command gives to its function beside the object.
void add_arguments(CommandText& text, const Request& request) {
  switch (request.command) {
    case Command::kSet:
      text.add(request.value);
      return add_flags(text, request);
    case Command::kSetow:
      text.add(request.value);
      add_flags(text, request);
      text.add_integer(request.owner);
      return;
    case Command::kDelow:
      add_flags(text, request);
      text.add_integer(request.owner);
      return;
    case Command::kIncr:
      return add_counter(text, request);
    case Command::kSetnx:
    case Command::kLpush:
    case Command::kRpush:
    case Command::kSadd:
    case Command::kSrem:
    case Command::kSismember:
    case Command::kZrank:
    case Command::kZscore:
      text.add(request.value);
      return;
    case Command::kHmset:
      text.add(request.named ? "" : "all");
      return add_fields(text, request);
    case Command::kHmsetnx:
    case Command::kHmupdate:
      return add_fields(text, request);
    case Command::kHmget:
      for (const std::uint32_t tag : request.tags) text.add_integer(tag);
      return;
    case Command::kLset:
      text.add(request.value).add_integer(request.start);
      return;
    case Command::kLrem: {
      constexpr std::uint64_t kMost = 2147483647;  // what any server takes
      text.add(request.value);
      text.add_integer(static_cast<std::int64_t>(std::min(request.count, kMost)));
      return;
    }
    case Command::kLinsert:
      text.add(request.value).add(request.pivot).add(request.after ? "AFTER" : "BEFORE");
      return;
    case Command::kLrange:
    case Command::kZrange:
    case Command::kZremrangebyrank:
      text.add_integer(request.start).add_integer(request.stop);
      return;
    case Command::kZadd:
      for (const std::size_t i : last_places(request.members)) {
        text.add_score(request.scores[i]).add(request.members[i]);
      }
      return;
    case Command::kZrem:
      for (const std::size_t i : last_places(request.members)) text.add(request.members[i]);
      return;
    case Command::kZcount:
    case Command::kZrangebyscore:
    case Command::kZremrangebyscore:
      text.add_score(request.min).add_score(request.max);
      return;
    case Command::kPexpire:
      text.add_integer(request.lifetime_us);
      return;
    case Command::kPexpireFields:
      text.add_integer(request.lifetime_us);
      for (const std::uint32_t tag : request.tags) text.add_integer(tag);
      return;
    default:
      return;
  }
}

// A call of a function on one key. The first arguments are the same for all.
void add_call(CommandText& text, const char* function, bool reads, std::string_view key,
              const Place& place) {
  text.add(reads ? "FCALL_RO" : "FCALL").add(function).add("1").add(key);
  if (place.now_us < 0) {
    text.add("");
  } else {
    text.add_integer(place.now_us);
  }
  text.add(place.is_spread ? "1" : "");
}

// Where a command on a level acts, and on which identities.
void add_level(CommandText& text, const Request& request, const Place& place, int partition) {
  const bool reads = only_reads(request.command);
  const char* const function = function_of(request.command);
  const std::string_view identity = request.identity;
  const std::string_view prefix = identity.substr(0, prefix_size(identity, request.level));
  const std::string index = "index:" + shelf_name(request.db, *request.type);
  if (partition < 0) {
    add_call(text, function, reads, partition_key(place, 0, index), place);
    text.add("all");
  } else {
    const auto at = static_cast<unsigned>(partition);
    add_call(text, function, reads, partition_key(place, at, index), place);
    text.add("partition");
  }
  text.add(identity_text(prefix));
}

}  // namespace

void append_command(std::string& to, const std::vector<std::string_view>& words) {
  append_head(to, '*', words.size());
  for (const std::string_view word : words) {
    append_word(to, word);
  }
}

bool only_reads(Command command) {
  switch (command) {
    case Command::kGet:
    case Command::kHmget:
    case Command::kHgetall:
    case Command::kScan:
    case Command::kScanIndex:
    case Command::kLlen:
    case Command::kLrange:
    case Command::kSmembers:
    case Command::kScard:
    case Command::kSismember:
    case Command::kZcard:
    case Command::kZrank:
    case Command::kZscore:
    case Command::kZcount:
    case Command::kZrange:
    case Command::kZrangebyscore:
      return true;
    default:
      return false;
  }
}

bool is_on_one_partition(const Request& request) {
  return !is_on_a_level(request.command) || request.level >= request.type->levels();
}

std::string encode(const Request& request, const Place& place, int partition) {
  if (!is_on_one_partition(request)) {
    CommandText text(bytes_of(request));
    add_level(text, request, place, partition);
    add_arguments(text, request);
    return text.text();
  }
  std::string key = take_text(kUsualKey);
  make_object_key(key, place, request.db, *request.type, request.identity);
  CommandText text(bytes_of(request));
  add_call(text, function_of(request.command), only_reads(request.command), key, place);
  if (is_on_a_level(request.command)) text.add("one").add("");
  add_arguments(text, request);
  keep_text(std::move(key));
  return text.text();
}

std::string encode_scan(const Request& request, const Place& place, int partition,
                        std::string_view position, std::uint32_t most) {
  CommandText text(256 + 2 * request.identity.size());
  add_level(text, request, place, partition);
  text.add(position).add_integer(most);
  text.add(request.command == Command::kScanIndex ? "keys" : "values");
  return text.text();
}

std::string encode_sweep(const Place& place, int partition, std::uint32_t most) {
  CommandText text(256);
  const auto at = static_cast<unsigned>(partition < 0 ? 0 : partition);
  add_call(text, "vu2_sweep", false, partition_key(place, at, "due"), place);
  text.add(partition < 0 ? "all" : "partition").add_integer(most);
  return text.text();
}

std::string encode_lease(const Place& place, int partition, std::string_view holder,
                         std::uint32_t milliseconds) {
  CommandText text(256);
  const auto at = static_cast<unsigned>(partition < 0 ? 0 : partition);
  add_call(text, "vu2_lease", false, partition_key(place, at, "lease"), place);
  text.add(holder).add_integer(milliseconds);
  return text.text();
}

}  // namespace vu::store
