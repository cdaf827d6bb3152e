// Identities as text, partitions, and replies of every form.
#include <gtest/gtest.h>
#include <hiredis/hiredis.h>

#include "../store/random.h"
#include "identity.h"
#include "store_bench.h"

namespace vu::testing {
namespace {

using store::identity_from_text;
using store::identity_text;
using store::partition_of;

std::string text_of(const std::string& type, const std::string& message) {
  return identity_text(request(Command::kGet, type, message).identity);
}

TEST(IdentityText, IsReadable) {
  EXPECT_EQ(text_of("Port", "device: 'a' number: 7"), "a/7/");
  EXPECT_EQ(text_of("Port", ""), "/0/");
  EXPECT_EQ(text_of("Port", "device: 'r-1.x_Y' number: 4294967295"), "r-1.x_Y/4294967295/");
  EXPECT_EQ(text_of("Port", "device: 'a/b %!\\n\\303\\244'"), "a%2Fb%20%25%21%0A%C3%A4/0/");
  EXPECT_EQ(text_of("Single", "text: 'x'"), "");
  EXPECT_EQ(text_of("Every",
                    "a: -9223372036854775808 b: true c: BLUE d: '\\000\\377' e: -1 "
                    "f: 18446744073709551615"),
            "-9223372036854775808/1/5/%00%FF/-1/18446744073709551615/");
}

TEST(IdentityText, ComesBack) {
  const std::pair<const char*, const char*> messages[] = {
      {"Port", "device: 'a' number: 7"},
      {"Port", "device: 'a/b %!\\n'"},
      {"Single", ""},
      {"Every", "a: -9223372036854775808 b: true c: BLUE d: '\\000\\377' e: -1"},
      {"Old", "name: 'x' level: TWO must: 1"}};
  for (const auto& [type, text] : messages) {
    const Request named = request(Command::kGet, type, text);
    std::string identity;
    ASSERT_TRUE(identity_from_text(*named.type, identity_text(named.identity), identity)) << text;
    EXPECT_EQ(identity, named.identity) << text;
  }
}

TEST(IdentityText, LeadingComponentsAreLeadingText) {
  const Request named = request(Command::kGet, "Every", "a: 1 d: 'x/y' f: 3");
  const std::string text = identity_text(named.identity);
  for (std::uint32_t level = 0; level <= 6; ++level) {
    const std::string_view identity = named.identity;
    const std::string part = identity_text(identity.substr(0, store::prefix_size(identity, level)));
    EXPECT_EQ(text.substr(0, part.size()), part);
    EXPECT_EQ(std::count(part.begin(), part.end(), '/'), static_cast<std::ptrdiff_t>(level));
  }
}

TEST(IdentityText, WhatIsNoneIsRefused) {
  const auto& port = *request(Command::kGet, "Port", "").type;
  const auto& every = *request(Command::kGet, "Every", "").type;
  std::string identity;
  for (const char* text : {"", "a/", "a/1", "a/1/2/", "a/-1/", "a/x/", "a/ 1/", "%4/1/", "%zz/1/",
                           "a b/1/", "a/18446744073709551616/"}) {
    EXPECT_FALSE(identity_from_text(port, text, identity)) << text;
  }
  EXPECT_FALSE(identity_from_text(every, "1/2/0//0/0/", identity));
  EXPECT_TRUE(identity_from_text(every, "1/0/0//0/0/", identity));
}

// What is stored lies where these numbers say: they never change.
TEST(Partitions, AreFixed) {
  const auto partition = [](const char* type, const char* text, std::int32_t db) {
    const Request named = request(Command::kGet, type, text);
    return partition_of(db, *named.type, named.identity);
  };
  EXPECT_EQ(partition("Port", "device: 'a' number: 7", 0), 11U);
  EXPECT_EQ(partition("Port", "device: 'a' number: 8", 0), 40U);
  EXPECT_EQ(partition("Port", "device: 'a' number: 7", 1), 22U);
  EXPECT_EQ(partition("Single", "", 0), 20U);
  EXPECT_EQ(partition("Every", "a: -1 d: '\\377'", 3), 47U);
}

TEST(Partitions, AllAreUsed) {
  std::vector<unsigned> objects(store::kPartitions);
  for (int i = 0; i < 6400; ++i) {
    const Request named =
        request(Command::kGet, "Port", "device: 'a' number: " + std::to_string(i));
    ++objects[partition_of(0, *named.type, named.identity)];
  }
  for (const unsigned count : objects) {
    EXPECT_GT(count, 40U);
    EXPECT_LT(count, 200U);
  }
}

std::string decoded(const Request& request, const std::string& bytes) {
  store::ByteList identities;
  const Reply reply = parse(bytes);
  return show(store::decode(request, *reply, 0, identities), *request.type);
}

TEST(Replies, Values) {
  const Request get = request(Command::kGet, "Port", "device: 'a'");
  const std::string a = "{device: \"a\"";
  EXPECT_EQ(decoded(get, "*3\r\n$-1\r\n$-1\r\n$-1\r\n"), "0");
  EXPECT_EQ(decoded(get, "*3\r\n$2\r\n\x18\x05\r\n$-1\r\n$-1\r\n"), "1 " + a + " rx: 5}");
  EXPECT_EQ(decoded(get, "*3\r\n$0\r\n\r\n$-1\r\n$-1\r\n"), "1 " + a + "}");
  // An owner; a deadline, before and after; another kind.
  EXPECT_EQ(decoded(get, "*3\r\n$0\r\n\r\n$9\r\nvalue::-7\r\n$-1\r\n"), "1 " + a + "}");
  EXPECT_EQ(decoded(get, "*3\r\n$0\r\n\r\n$10\r\nvalue:123:\r\n$0\r\n\r\n"), "1 " + a + "}");
  EXPECT_EQ(decoded(get, "*3\r\n$0\r\n\r\n$10\r\nvalue:123:\r\n$-1\r\n"), "0");
  EXPECT_EQ(decoded(get, "*3\r\n$-1\r\n$6\r\nhash::\r\n$-1\r\n"),
            "error: the object is a hash, not a single value");
  EXPECT_EQ(decoded(get, "*3\r\n$-1\r\n$9\r\nhash:123:\r\n$-1\r\n"), "0");
  EXPECT_EQ(decoded(request(Command::kIncr, "Port", ""), "*2\r\n:4294967295\r\n:4294967294\r\n"),
            "0 = -2");
  EXPECT_EQ(decoded(request(Command::kIncr, "Port", ""), "*2\r\n:2147483647\r\n:4294967295\r\n"),
            "0 = 9223372036854775807");
}

TEST(Replies, OfEveryOtherForm) {
  const auto of = [](Command command, const std::string& bytes) {
    return decoded(request(command, "Port", "device: 'a'"), bytes);
  };
  const std::string a = "{device: \"a\"";
  EXPECT_EQ(of(Command::kSet, ":1\r\n"), "0 = 1");
  EXPECT_EQ(of(Command::kHgetall, "$-1\r\n"), "0");
  EXPECT_EQ(of(Command::kHgetall, "*4\r\n$2\r\n10\r\n$0\r\n\r\n$1\r\n3\r\n$2\r\n\x18\x05\r\n"),
            "4 " + a + " rx: 5} tags 3 10");
  Request named = request(Command::kHmget, "Port", "device: 'a'");
  named.tags = {3, 4};
  EXPECT_EQ(decoded(named, "*2\r\n$1\r\n3\r\n$2\r\n\x18\x05\r\n"), "4 " + a + " rx: 5} tags 3 4");
  EXPECT_EQ(decoded(named, "*0\r\n"), "4 " + a + "} tags 3 4");
  EXPECT_EQ(of(Command::kLpop, "$-1\r\n"), "0");
  EXPECT_EQ(of(Command::kLpop, "$0\r\n\r\n"), "12 " + a + "}");
  EXPECT_EQ(of(Command::kRpop, "$0\r\n\r\n"), "13 " + a + "}");
  EXPECT_EQ(of(Command::kLrange, "*0\r\n"), "10");
  EXPECT_EQ(of(Command::kLrange, "*2\r\n$0\r\n\r\n$2\r\n\x18\x05\r\n"),
            "10 " + a + "} " + a + " rx: 5}");
  EXPECT_EQ(of(Command::kSmembers, "*1\r\n$0\r\n\r\n"), "18 " + a + "}");
  EXPECT_EQ(of(Command::kZrank, "$-1\r\n"), "0");
  EXPECT_EQ(of(Command::kZrank, ":3\r\n"), "0 = 3");
  EXPECT_EQ(of(Command::kZscore, "$-1\r\n"), "0");
  EXPECT_EQ(of(Command::kZscore, "$4\r\n-2.5\r\n"), "0 = -2.500000");
  EXPECT_EQ(of(Command::kZrange, "*2\r\n$0\r\n\r\n$3\r\ninf\r\n"), "39 " + a + "}@inf");
  EXPECT_EQ(of(Command::kPdel, "*0\r\n"), "0 end 5 of 0");
  EXPECT_EQ(of(Command::kPexpire, "*1\r\n$4\r\na/0/\r\n"), "0 end 2 of 1");
  EXPECT_EQ(of(Command::kPexpireFields, "*2\r\n:1\r\n$4\r\na/0/\r\n"), "0 end 4 of 1");
  EXPECT_EQ(of(Command::kPexpireFields, "*1\r\n:0\r\n"), "0 end 4 of 0");
  EXPECT_EQ(of(Command::kPexpireFields, "*1\r\n:1\r\n"),
            "error: the object is not a hash; its fields have no lifetimes");
}

TEST(Replies, Errors) {
  const auto of = [](Command command, const std::string& error) {
    return decoded(request(command, "Port", ""), "-" + error + "\r\n");
  };
  EXPECT_EQ(of(Command::kLpop, "VUKIND zset"), "error: the object is a sorted set, not a list");
  EXPECT_EQ(of(Command::kSadd, "VUKIND value"), "error: the object is a single value, not a set");
  EXPECT_EQ(of(Command::kZadd, "VUKIND set"), "error: the object is a set, not a sorted set");
  EXPECT_EQ(of(Command::kSetow, "VUOWNER held"), "error: another owner holds the object");
  EXPECT_EQ(of(Command::kDelow, "VUOWNER other"), "error: the object is not this owner's");
  EXPECT_EQ(of(Command::kIncr, "VUCOUNT"), "error: the counter is at its largest value");
  EXPECT_EQ(of(Command::kSet, "OOM command not allowed"),
            "error: not done: the server says: OOM command not allowed");
  EXPECT_EQ(of(Command::kSet, "ERR of a kind"), "error: unknown: the server says: ERR of a kind");
  EXPECT_EQ(of(Command::kLlen, "ERR of a kind"), "error: not done: the server says: ERR of a kind");
}

TEST(Replies, ThatMakeNoSenseAreErrors) {
  const std::string replies[] = {":1\r\n",
                                 "$1\r\nx\r\n",
                                 "*0\r\n",
                                 "*1\r\n:1\r\n",
                                 "*3\r\n:1\r\n:1\r\n:1\r\n",
                                 "*3\r\n$1\r\nx\r\n$4\r\nwhat\r\n$-1\r\n",
                                 "*2\r\n$1\r\nx\r\n$1\r\nx\r\n",
                                 "-VUKIND nonsense\r\n"};
  for (const Command command :
       {Command::kGet, Command::kIncr, Command::kHgetall, Command::kLrange, Command::kZrange,
        Command::kZscore, Command::kPdel, Command::kPexpireFields, Command::kSet}) {
    int errors = 0;
    for (const std::string& reply : replies) {
      if (decoded(request(command, "Port", ""), reply).starts_with("error: unknown")) ++errors;
    }
    EXPECT_GE(errors, 4) << static_cast<int>(command);
  }
}

TEST(Events, ThatMakeNoSenseAreToldApart) {
  const auto& type = *request(Command::kGet, "Port", "").type;
  std::vector<store::Notice> notices;
  const std::string good = "1 1 123 0 m a/7/\n 2\n\x18\x05";
  ASSERT_TRUE(store::decode_event(type, 0, good, 0, notices));
  ASSERT_EQ(notices.size(), 1U);
  EXPECT_EQ(show(notices[0], type), "1 {device: \"a\" number: 7 rx: 5}");
  EXPECT_EQ(notices[0].time_us, 123);
  EXPECT_EQ(notices[0].db, 0);
  EXPECT_TRUE(notices[0].names_object);
  for (std::size_t size = 0; size < good.size(); ++size) {
    EXPECT_FALSE(store::decode_event(type, 0, good.substr(0, size), 0, notices)) << size;
  }
  for (const char* text : {"2 1 123 0 m a/7/\n 0\n", "1 x 123 0 n a/7/\n", "1 1 123 0 q a/7/\n",
                           "1 1 123 0 nn a/7/\n", "1 1 123 0 n a/\n", "1 36 1 0 l a/7/\n-x 0\n",
                           "1 36 1 0 l a/7/\n99999999999 0\n", "1 39 1 0 z a/7/\nx 0\n"}) {
    EXPECT_FALSE(store::decode_event(type, 0, text, 0, notices)) << text;
  }
  EXPECT_EQ(notices.size(), 1U);
}

}  // namespace
}  // namespace vu::testing
