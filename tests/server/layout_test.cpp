// All that is in a server after some commands, to the byte: the same from every machine,
// and what docs/server.md says.
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "functions_fixture.h"
#include "identity.h"

namespace vu::testing {
namespace {

class Layout : public Functions {
 protected:
  // Every key with what is in it, in the order of the keys; bytes that are no text as \xNN.
  std::string everything() {
    std::istringstream found(keys().substr(1));
    Lines names;
    for (std::string name; found >> name;) {
      if (name.back() == ']') name.pop_back();
      names.push_back(name);
    }
    std::sort(names.begin(), names.end());
    std::string text;
    for (const std::string& name : names) text += name + " = " + readable(value_of(name)) + '\n';
    return text;
  }

 private:
  std::string value_of(const std::string& name) {
    const std::string type = call({"TYPE", name});
    if (type == "string") {
      const std::string value = call({"GET", name});
      return value.empty() ? "<nothing>" : value;
    }
    if (type == "hash") {
      return "hash [3: " + call({"HGET", name, "3"}) + " of " + call({"HLEN", name}) + "]";
    }
    if (type == "list") return "list " + call({"LRANGE", name, "0", "-1"});
    if (type == "set") return "set " + call({"SMEMBERS", name});
    return "zset " + call({"ZRANGE", name, "0", "-1", "WITHSCORES"});
  }

  static std::string readable(const std::string& bytes) {
    std::string text;
    for (const char byte : bytes) {
      const auto value = static_cast<unsigned char>(byte);
      if (value >= 0x20 && value < 0x7f) {
        text.push_back(byte);
        continue;
      }
      constexpr char kDigits[] = "0123456789abcdef";
      text.append("\\x").append(1, kDigits[value >> 4]).append(1, kDigits[value & 15]);
    }
    return text;
  }
};

TEST_F(Layout, IsFixed) {
  stop_clock();
  run(request(Command::kSet, "Port", "device: 'a b' number: 7 rx: 300 note: 'n'"));
  run(request(Command::kSet, "Every",
              "a: -9223372036854775808 b: true c: BLUE d: '\\377/' e: -1 f: 1 rest: 'r'"));
  Request owned = request(Command::kSetow, "Port", "device: 'owned'");
  owned.owner = -9223372036854775807;
  run(owned);
  run(request(Command::kHmset, "Port", "device: 'h' rx: 1"));
  run(request(Command::kRpush, "Port", "device: 'l' rx: 1"));
  run(request(Command::kLpush, "Port", "device: 'l' rx: 2"));
  run(request(Command::kSadd, "Single", "text: 's'"));
  Request scored = request(Command::kZadd, "Port", "device: 'z'");
  scored.members.add("\x0a\x01z");
  scored.scores.push_back(0.1);
  run(scored);
  Request lifetime = request(Command::kPexpire, "Port", "device: 'owned'");
  lifetime.lifetime_us = 1;
  run(lifetime);
  Request field = request(Command::kPexpireFields, "Port", "device: 'h'");
  field.lifetime_us = 2;
  field.tags = {3};
  run(field);
  EXPECT_EQ('\n' + everything(), R"text(
vu:{12}!index:0:acme.net.Every = zset [-9223372036854775808/1/5/%FF%2F/-1/1/ 0]
vu:{12}:0:acme.net.Every:-9223372036854775808/1/5/%FF%2F/-1/1/ = \x0a\x01r
vu:{20}!index:0:acme.net.Port = zset [a%20b/7/ 0]
vu:{20}!index:0:acme.net.Single = zset [ 0]
vu:{20}:0:acme.net.Port:a%20b/7/ = \x18\xac\x02"\x01n
vu:{20}:0:acme.net.Single: = set [\x0a\x01s]
vu:{20}:0:acme.net.Single:!meta = set::
vu:{25}!due = zset [0:acme.net.Port:h/0/#000000003 1700000000000002]
vu:{25}!index:0:acme.net.Port = zset [h/0/ 0]
vu:{25}:0:acme.net.Port:h/0/ = hash [3: \x18\x01 of 2]
vu:{25}:0:acme.net.Port:h/0/!fields = zset [3 1700000000000002]
vu:{25}:0:acme.net.Port:h/0/!meta = hash::fields
vu:{29}!index:0:acme.net.Port = zset [l/0/ 0]
vu:{29}:0:acme.net.Port:l/0/ = list [\x18\x02 \x18\x01]
vu:{29}:0:acme.net.Port:l/0/!meta = list::
vu:{30}!due = zset [0:acme.net.Port:owned/0/#object 1700000000000001]
vu:{30}!index:0:acme.net.Port = zset [owned/0/ 0]
vu:{30}:0:acme.net.Port:owned/0/ = <nothing>
vu:{30}:0:acme.net.Port:owned/0/!meta = value:1700000000000001:-9223372036854775807
vu:{43}!index:0:acme.net.Port = zset [z/0/ 0]
vu:{43}:0:acme.net.Port:z/0/ = zset [\x0a\x01z 0.10000000000000001]
vu:{43}:0:acme.net.Port:z/0/!meta = zset::
)text");
}

// What is published is fixed as well.
TEST_F(Layout, OfEventsIsFixed) {
  stop_clock();
  const std::string channels[] = {"vu:o:0:acme.net.Port:", "vu:f:0:acme.net.Port:a%2Fb/",
                                  "vu:o:0:acme.net.Port:a%2Fb/7/"};
  const Request named = request(Command::kSet, "Port", "device: 'a/b' number: 7 rx: 5");
  const std::string_view identity = named.identity;
  for (std::uint32_t level = 0; level <= 2; ++level) {
    const auto prefix = identity.substr(0, store::prefix_size(identity, level));
    EXPECT_EQ(store::channel_of(bench_.place, 0, *named.type, prefix, level == 1), channels[level]);
  }
  bench_.watch("Port", "device: 'a/b' number: 7", 0, 0);
  bench_.watch("Port", "device: 'a/b' number: 7", 1, 3);
  run(named);
  run(request(Command::kIncr, "Port", "device: 'a/b' number: 7"));
  Request removed = request(Command::kPexpire, "Port", "device: 'a/b' number: 7");
  run(removed);
  const std::string changed =
      "1 3 1700000000000000 0 v a%2Fb/7/\nold 2\n\x18\x05"
      "new 4\n\x18\x05\x30\x01";
  EXPECT_EQ(bench_.heard(), (Lines{"1 1 1700000000000000 0 m a%2Fb/7/\n 2\n\x18\x05",
                                   "1 1 1700000000000000 0 v a%2Fb/7/\nnew 2\n\x18\x05",
                                   "1 3 1700000000000000 0 m a%2Fb/7/\n 4\n\x18\x05\x30\x01",
                                   changed, "1 0 1700000000000000 0 n a%2Fb/7/\n",
                                   "1 0 1700000000000000 0 v a%2Fb/7/\nold 4\n\x18\x05\x30\x01"}));
}

}  // namespace
}  // namespace vu::testing
