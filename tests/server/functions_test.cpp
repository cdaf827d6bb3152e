// The functions in a real server: what they store, reply and tell.
#include <gtest/gtest.h>

#include <limits>

#include "functions_fixture.h"
#include "wire.h"

namespace vu::testing {
namespace {

TEST_F(Functions, SingleValues) {
  watch();
  EXPECT_EQ(run(Command::kGet), "0");
  EXPECT_EQ(run(Command::kSet, "rx: 1"), "0 = 1");
  EXPECT_EQ(run(Command::kSetnx, "rx: 2"), "0 = 0");
  EXPECT_EQ(run(Command::kGet), "1 " + kA + " rx: 1}");
  Request quiet = port(Command::kSet, "rx: 3");
  quiet.quiet = true;
  EXPECT_EQ(run(quiet), "0 = 1");
  EXPECT_EQ(run(Command::kDel), "0 = 1");
  EXPECT_EQ(run(Command::kDel), "0 = 0");
  EXPECT_EQ(keys(), "[]");
  EXPECT_EQ(run(Command::kSetnx, "rx: 4"), "0 = 1");
  EXPECT_EQ(told(), (Lines{"1 " + kA + " rx: 1}", "29", "1 " + kA + " rx: 4}"}));
}

TEST_F(Functions, Owners) {
  const auto owned = [this](Command command, std::int64_t owner, const std::string& text = "") {
    Request made = port(command, text);
    made.owner = owner;
    return run(made);
  };
  EXPECT_EQ(owned(Command::kDelow, 1), "0 = 0");
  EXPECT_EQ(owned(Command::kSetow, -1, "rx: 1"), "0 = 1");
  EXPECT_EQ(owned(Command::kSetow, 1, "rx: 2"), "error: another owner holds the object");
  EXPECT_EQ(owned(Command::kDelow, 1), "error: the object is not this owner's");
  EXPECT_EQ(run(Command::kSet, "rx: 3"), "0 = 1");
  expire(1'000'000);
  EXPECT_EQ(owned(Command::kSetow, -1, "rx: 4"), "0 = 1");
  EXPECT_EQ(run(Command::kGet), "1 " + kA + " rx: 4}");
  EXPECT_EQ(owned(Command::kDelow, -1), "0 = 1");
  EXPECT_EQ(run(Command::kSet, "rx: 3"), "0 = 1");
  EXPECT_EQ(owned(Command::kDelow, -1), "error: the object is not this owner's");
  EXPECT_EQ(owned(Command::kSetow, 5, "rx: 3"), "0 = 1");
  EXPECT_EQ(run(Command::kDel), "0 = 1");
  EXPECT_EQ(keys(), "[]");
}

TEST_F(Functions, FieldsOfSingleValues) {
  for (const std::uint32_t tag : {1U, 3U, 4U, 6U}) watch(tag);
  run(Command::kSet, "rx: 1 note: 'n' hits: 5");
  EXPECT_EQ(told(), (Lines{"1 field 1 " + kA + "}", "1 field 3 " + kA + " rx: 1}",
                           "1 field 4 " + kA + " note: \"n\"}", "1 field 6 " + kA + " hits: 5}"}));
  run(Command::kIncr);
  EXPECT_EQ(told(), (Lines{"3 field 6 " + kA + " hits: 6}"}));
  run(Command::kSet, "rx: 2");
  EXPECT_EQ(told(), (Lines{"1 field 1 " + kA + "}", "1 field 3 " + kA + " rx: 2}", "29 field 4",
                           "29 field 6"}));
  run(Command::kDel);
  EXPECT_EQ(told(), (Lines{"29 field 1", "29 field 3"}));
}

TEST_F(Functions, Hashes) {
  watch();
  watch(4);
  EXPECT_EQ(run(Command::kHmupdate, "rx: 1"), "0 = 0");
  EXPECT_EQ(fields(Command::kHmset, "", {3}), "0 = 0");
  EXPECT_EQ(run(Command::kHmset, "rx: 1 note: 'n'"), "0 = 3");
  EXPECT_EQ(fields(Command::kHmsetnx, "rx: 2 speed: 1", {3, 8}), "0 = 0");
  EXPECT_EQ(fields(Command::kHmsetnx, "speed: 1", {8}), "0 = 1");
  EXPECT_EQ(fields(Command::kHmupdate, "rx: 3", {3, 4, 9}), "0 = 2");
  EXPECT_EQ(run(Command::kHgetall), "4 " + kA + " rx: 3 speed: 1} tags 1 3 8");
  Request named = port(Command::kHmget);
  named.tags = {3, 4};
  EXPECT_EQ(run(named), "4 " + kA + " rx: 3} tags 3 4");
  EXPECT_EQ(told(),
            (Lines{"4 " + kA + " rx: 1 note: \"n\"} tags 1 3 4",
                   "4 field 4 " + kA + " note: \"n\"} tags 4", "6 " + kA + " speed: 1} tags 8",
                   "9 " + kA + " rx: 3} tags 3 4 9", "29 field 4"}));
  Request none = port(Command::kHmset);
  none.named = true;
  none.fields = {{1, ""}, {3, ""}, {8, ""}};
  EXPECT_EQ(run(none), "0 = 3");
  EXPECT_EQ(run(Command::kHgetall), "0");
  EXPECT_EQ(keys(), "[]");
  EXPECT_EQ(told(), (Lines{"4 " + kA + "} tags 1 3 8"}));
}

TEST_F(Functions, Lists) {
  watch();
  EXPECT_EQ(run(Command::kRpop), "0");
  EXPECT_EQ(run(Command::kRpush, "rx: 1"), "0 = 1");
  EXPECT_EQ(run(Command::kLpush, "rx: 2"), "0 = 2");
  EXPECT_EQ(run(Command::kRpush, "rx: 1"), "0 = 3");
  Request insert = port(Command::kLinsert, "rx: 3");
  insert.pivot = port(Command::kLinsert, "rx: 1").value;
  insert.after = true;
  EXPECT_EQ(run(insert), "0 = 4");
  insert.pivot = "none";
  EXPECT_EQ(run(insert), "0 = -1");
  Request put = port(Command::kLset, "rx: 4");
  put.start = -4;
  EXPECT_EQ(run(put), "0 = 1");
  put.start = 4;
  EXPECT_EQ(run(put), "0 = 0");
  put.start = -5;
  EXPECT_EQ(run(put), "0 = 0");
  Request range = port(Command::kLrange);
  range.start = -100;
  range.stop = 100;
  EXPECT_EQ(run(range),
            "10 " + kA + " rx: 4} " + kA + " rx: 1} " + kA + " rx: 3} " + kA + " rx: 1}");
  EXPECT_EQ(run(Command::kLlen), "0 = 4");
  Request remove = port(Command::kLrem, "rx: 1");
  remove.count = std::numeric_limits<std::uint64_t>::max();
  EXPECT_EQ(run(remove), "0 = 2");
  EXPECT_EQ(run(Command::kLpop), "12 " + kA + " rx: 4}");
  EXPECT_EQ(run(Command::kRpop), "13 " + kA + " rx: 3}");
  EXPECT_EQ(run(insert), "0 = 0");
  EXPECT_EQ(run(range), "10");
  EXPECT_EQ(keys(), "[]");
  EXPECT_EQ(told(), (Lines{"11 " + kA + " rx: 1}", "10 " + kA + " rx: 2}", "11 " + kA + " rx: 1}",
                           "34 " + kA + " rx: 3}", "35 " + kA + " rx: 4}",
                           "36 " + kA + " rx: 1} " + kA + " rx: 1}", "12 " + kA + " rx: 4}",
                           "13 " + kA + " rx: 3}"}));
}

TEST_F(Functions, Sets) {
  watch();
  EXPECT_EQ(run(Command::kSrem, "rx: 1"), "0 = 0");
  EXPECT_EQ(run(Command::kSadd, "rx: 1"), "0 = 1");
  EXPECT_EQ(run(Command::kSadd, "rx: 1"), "0 = 0");
  EXPECT_EQ(run(Command::kSismember, "rx: 1"), "0 = 1");
  EXPECT_EQ(run(Command::kSismember, "rx: 2"), "0 = 0");
  EXPECT_EQ(run(Command::kScard), "0 = 1");
  EXPECT_EQ(run(Command::kSmembers), "18 " + kA + " rx: 1}");
  EXPECT_EQ(run(Command::kSrem, "rx: 1"), "0 = 1");
  EXPECT_EQ(run(Command::kSmembers), "18");
  EXPECT_EQ(keys(), "[]");
  EXPECT_EQ(told(), (Lines{"18 " + kA + " rx: 1}", "19 " + kA + " rx: 1}"}));
}

TEST_F(Functions, SortedSets) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  const auto members = [](Command command, const std::vector<std::pair<double, int>>& pairs) {
    Request made = port(command);
    for (const auto& [score, rx] : pairs) {
      made.members.add(port(command, "rx: " + std::to_string(rx)).value);
      made.scores.push_back(score);
    }
    return made;
  };
  const auto range = [](Command command, double low, double high) {
    Request made = port(command);
    made.min = low;
    made.max = high;
    made.start = command == Command::kZcount ? 0 : static_cast<std::int32_t>(low);
    made.stop = command == Command::kZcount ? 0 : static_cast<std::int32_t>(high);
    return made;
  };
  watch();
  EXPECT_EQ(run(members(Command::kZadd, {{1, 1}, {-kInfinity, 2}, {0.1, 3}, {5, 1}})), "0 = 3");
  EXPECT_EQ(run(members(Command::kZadd, {{5, 1}, {0.5, 3}})), "0 = 0");
  EXPECT_EQ(run(members(Command::kZadd, {{5, 1}})), "0 = 0");
  EXPECT_EQ(run(range(Command::kZrange, 0, -1)),
            "39 " + kA + " rx: 2}@-inf " + kA + " rx: 3}@0.500000 " + kA + " rx: 1}@5.000000");
  EXPECT_EQ(run(range(Command::kZrangebyscore, 0.5, 5)),
            "39 " + kA + " rx: 3}@0.500000 " + kA + " rx: 1}@5.000000");
  EXPECT_EQ(run(range(Command::kZcount, -kInfinity, 0.5)), "0 = 2");
  EXPECT_EQ(run(Command::kZcard), "0 = 3");
  EXPECT_EQ(run(Command::kZrank, "rx: 3"), "0 = 1");
  EXPECT_EQ(run(Command::kZrank, "rx: 4"), "0");
  EXPECT_EQ(run(Command::kZscore, "rx: 3"), "0 = 0.500000");
  EXPECT_EQ(run(members(Command::kZrem, {{0, 1}, {0, 4}, {0, 1}})), "0 = 1");
  EXPECT_EQ(run(range(Command::kZremrangebyscore, 0.25, 0.75)), "0 = 1");
  EXPECT_EQ(run(range(Command::kZremrangebyrank, 5, 9)), "0 = 0");
  EXPECT_EQ(run(range(Command::kZremrangebyrank, 0, -1)), "0 = 1");
  EXPECT_EQ(keys(), "[]");
  EXPECT_EQ(told(), (Lines{"39 " + kA + " rx: 2}@-inf " + kA + " rx: 3}@0.100000 " + kA +
                               " rx: 1}@5.000000",
                           "39 " + kA + " rx: 3}@0.500000", "40 " + kA + " rx: 1}@5.000000",
                           "41 " + kA + " rx: 3}@0.500000", "42 " + kA + " rx: 2}@-inf"}));
}

TEST_F(Functions, OtherKindsAreRefused) {
  run(Command::kSet, "rx: 1");
  const std::string value = "error: the object is a single value, not a";
  for (const Command command :
       {Command::kLpush, Command::kRpop, Command::kLlen, Command::kLrange}) {
    EXPECT_EQ(run(command), value + " list") << static_cast<int>(command);
  }
  EXPECT_EQ(run(Command::kHmset), value + " hash");
  EXPECT_EQ(run(Command::kHgetall), value + " hash");
  EXPECT_EQ(run(Command::kSadd), value + " set");
  EXPECT_EQ(run(Command::kZcard), value + " sorted set");
  Request added = port(Command::kZadd);
  added.members.add("x");
  added.scores.push_back(1);
  EXPECT_EQ(run(added), value + " sorted set");
  EXPECT_EQ(run(Command::kGet), "1 " + kA + " rx: 1}");
  run(Command::kDel);
  run(Command::kSadd, "rx: 1");
  const std::string set = "error: the object is a set, not a";
  for (const Command command :
       {Command::kGet, Command::kSet, Command::kSetnx, Command::kSetow, Command::kIncr}) {
    EXPECT_EQ(run(command), set + " single value") << static_cast<int>(command);
  }
  EXPECT_EQ(run(Command::kLpush), set + " list");
  EXPECT_EQ(run(Command::kHmupdate), set + " hash");
  EXPECT_EQ(run(Command::kZrank), set + " sorted set");
  EXPECT_EQ(run(Command::kDelow), "error: the object is not this owner's");
  EXPECT_EQ(expire_fields(1, {3}), "error: the object is not a hash; its fields have no lifetimes");
}

// The server counts as the library does, in every form and at every edge.
TEST_F(Functions, Counters) {
  const std::int64_t edges[] = {0,
                                1,
                                -1,
                                -2,
                                127,
                                128,
                                2147483646,
                                2147483647,
                                -2147483648,
                                4294967294,
                                4294967295,
                                4294967296,
                                -4294967297,
                                9007199254740993,
                                std::numeric_limits<std::int64_t>::max() - 1,
                                std::numeric_limits<std::int64_t>::max(),
                                std::numeric_limits<std::int64_t>::min()};
  for (const char* type : {"Port", "SmallCounter", "UnsignedCounter", "ZigzagCounter",
                           "FixedCounter", "WideCounter"}) {
    Request made = request(Command::kIncr, type, "");
    const store::Counter& counter = made.type->counter;
    const std::string key = "vu:{" +
                            std::to_string(store::partition_of(0, *made.type, made.identity)) +
                            "}:0:acme.net." + type + ":" + store::identity_text(made.identity);
    for (const std::int64_t edge : edges) {
      // A value that counts as edge, where the field can hold it.
      std::string value = "\x0a\x01x\x7a\x01y";
      store::Counter from = counter;
      from.initial = edge;
      from.is_32_bit = false;
      from.is_signed = true;
      std::int64_t counted = 0;
      if (!store::increment(value, from, counted)) continue;
      call({"SET", key, value});
      std::string expected_value = value;
      std::int64_t expected = 0;
      const std::string reply = run(made);
      if (store::increment(expected_value, counter, expected)) {
        EXPECT_EQ(reply, "0 = " + std::to_string(expected)) << type << ' ' << edge;
      } else {
        EXPECT_EQ(reply, "error: the counter is at its largest value") << type << ' ' << edge;
      }
      EXPECT_EQ(call({"GET", key}), expected_value) << type << ' ' << edge;
    }
    call({"FLUSHALL"});
    EXPECT_EQ(run(made), "0 = 1") << type;
    EXPECT_EQ(run(made), "0 = 2") << type;
  }
}

TEST_F(Functions, CountersThatBeginElsewhere) {
  const Request old = request(Command::kIncr, "Old", "name: 'x' must: 1 n: 70");
  EXPECT_EQ(run(old), "0 = 11");
  EXPECT_EQ(run(old), "0 = 12");
  run(request(Command::kSet, "Old", "name: 'x' must: 1"));
  EXPECT_EQ(run(old), "0 = 11");
}

TEST_F(Functions, RemovingWorksWithoutMemory) {
  run(Command::kSet, "rx: 1");
  call({"CONFIG", "SET", "maxmemory", "1"});
  EXPECT_TRUE(run(Command::kSet, "rx: 2").starts_with("error: not done: the server says: OOM"));
  EXPECT_EQ(run(Command::kGet), "1 " + kA + " rx: 1}");
  EXPECT_EQ(run(Command::kDel), "0 = 1");
  call({"CONFIG", "SET", "maxmemory", "0"});
  EXPECT_EQ(keys(), "[]");
}

}  // namespace
}  // namespace vu::testing
