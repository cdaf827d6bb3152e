#include "reply_reader.h"

#include <hiredis/hiredis.h>

#include <charconv>

namespace vu::store {

namespace {

template <typename Number>
Number to_number(std::string_view text) {
  Number value{};
  const char* const end = text.data() + text.size();
  const auto read = std::from_chars(text.data(), end, value);
  if (read.ec != std::errc() || read.ptr != end) throw BadReply("no number");
  return value;
}

}  // namespace

bool is_nil(const redisReply& reply) { return reply.type == REDIS_REPLY_NIL; }

std::string_view text_of(const redisReply& reply) {
  if (reply.type != REDIS_REPLY_STRING) throw BadReply("no string");
  return {reply.str, static_cast<std::size_t>(reply.len)};
}

std::int64_t integer_of(const redisReply& reply) {
  if (reply.type != REDIS_REPLY_INTEGER) throw BadReply("no integer");
  return reply.integer;
}

std::size_t size_of(const redisReply& reply) {
  if (reply.type != REDIS_REPLY_ARRAY) throw BadReply("no array");
  return static_cast<std::size_t>(reply.elements);
}

const redisReply& element_of(const redisReply& reply, std::size_t index) {
  if (index >= size_of(reply)) throw BadReply("a short array");
  return *reply.element[index];
}

std::int64_t to_integer(std::string_view text) { return to_number<std::int64_t>(text); }

double to_score(std::string_view text) { return to_number<double>(text); }

std::uint32_t to_field_number(std::string_view text) { return to_number<std::uint32_t>(text); }

}  // namespace vu::store
