// Replies as the parser builds them in memory that is used again.
#include "reply_memory.h"

#include <gtest/gtest.h>
#include <hiredis/hiredis.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace vu::testing {
namespace {

using Reader = std::unique_ptr<redisReader, decltype(&redisReaderFree)>;

std::string show(const redisReply& reply) {
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(&reply) % alignof(redisReply), 0u);
  switch (reply.type) {
    case REDIS_REPLY_STRING:
      EXPECT_EQ(reply.str[reply.len], '\0');
      return "'" + std::string(reply.str, reply.len) + "'";
    case REDIS_REPLY_STATUS:
      return "+" + std::string(reply.str, reply.len);
    case REDIS_REPLY_ERROR:
      return "-" + std::string(reply.str, reply.len);
    case REDIS_REPLY_INTEGER:
      return std::to_string(reply.integer);
    case REDIS_REPLY_NIL:
      return "nil";
    default:
      break;
  }
  EXPECT_EQ(reply.type, REDIS_REPLY_ARRAY);
  std::string text = "[";
  for (std::size_t i = 0; i < reply.elements; ++i) text += show(*reply.element[i]) + " ";
  return text + "]";
}

// Feeds `bytes` in pieces; all replies in them, one behind the other.
std::string parse(store::ReplyMemory& memory, redisReader& reader, std::string_view bytes,
                  std::size_t piece) {
  std::string text;
  for (std::size_t at = 0; at < bytes.size(); at += piece) {
    const std::string_view part = bytes.substr(at, piece);
    EXPECT_EQ(redisReaderFeed(&reader, part.data(), part.size()), REDIS_OK);
    for (;;) {
      void* reply = nullptr;
      if (redisReaderGetReply(&reader, &reply) != REDIS_OK) return text + reader.errstr;
      if (reply == nullptr) break;
      text += show(*static_cast<const redisReply*>(reply));
      memory.forget();
    }
  }
  return text;
}

struct Case {
  const char* name;
  std::string bytes;
  std::string replies;
};

std::string array_of(std::size_t count, const std::string& element) {
  std::string text = "*" + std::to_string(count) + "\r\n";
  for (std::size_t i = 0; i < count; ++i) text += element;
  return text;
}

std::string times(std::size_t count, const std::string& text) {
  std::string all;
  for (std::size_t i = 0; i < count; ++i) all += text;
  return all;
}

const std::string kilobyte(1024, 'x');
const std::string bulk = "$1024\r\n" + kilobyte + "\r\n";

const Case cases[] = {
    {"status", "+OK\r\n", "+OK"},
    {"error", "-ERR no\r\n", "-ERR no"},
    {"integers", ":0\r\n:-7\r\n:9223372036854775807\r\n", "0-79223372036854775807"},
    {"string with ends of lines", "$5\r\na\r\nb\r\r\n", "'a\r\nb\r'"},
    {"empty string", "$0\r\n\r\n", "''"},
    {"no string", "$-1\r\n", "nil"},
    {"no array", "*-1\r\n", "nil"},
    {"empty array", "*0\r\n", "[]"},
    {"what get reads", "*3\r\n$2\r\nab\r\n$-1\r\n$-1\r\n", "['ab' nil nil ]"},
    {"nested", "*2\r\n*1\r\n:1\r\n*2\r\n+a\r\n*0\r\n", "[[1 ] [+a [] ] ]"},
    {"more than is usual", array_of(100, bulk), "[" + times(100, "'" + kilobyte + "' ") + "]"},
    {"many pointers", array_of(20000, ":1\r\n"), "[" + times(20000, "1 ") + "]"},
    {"too many to be honest", "*67108865\r\n", "Out of memory"},
};

TEST(ReplyMemoryTest, HoldsRepliesOfAllKindsHoweverTheyArrive) {
  for (const Case& one : cases) {
    for (const std::size_t piece : {std::size_t{1}, std::size_t{3}, std::size_t{1000000}}) {
      SCOPED_TRACE(one.name + (" in pieces of " + std::to_string(piece)));
      store::ReplyMemory memory;
      const Reader reader(memory.make_reader(), redisReaderFree);
      ASSERT_NE(reader, nullptr);
      EXPECT_EQ(parse(memory, *reader, one.bytes, piece), one.replies);
      if (reader->err == 0) {
        EXPECT_EQ(parse(memory, *reader, one.bytes, piece), one.replies) << "in the same memory";
      }
    }
  }
}

// What was begun when a connection ended leaves nothing behind in the memory of the next.
TEST(ReplyMemoryTest, IsUsableAfterAnUnfinishedReply) {
  store::ReplyMemory memory;
  for (int i = 0; i < 3; ++i) {
    const Reader reader(memory.make_reader(), redisReaderFree);
    ASSERT_NE(reader, nullptr);
    EXPECT_EQ(parse(memory, *reader, array_of(99, bulk) + "*200\r\n" + bulk, 4096),
              "[" + times(99, "'" + kilobyte + "' ") + "]");
    memory.forget();
  }
}

}  // namespace
}  // namespace vu::testing
