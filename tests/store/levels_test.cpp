// Levels, lifetimes, scans.
#include <algorithm>
#include <set>

#include "store_fixture.h"

namespace vu::store::test {
namespace {

class Levels : public testing::Test {
 protected:
  Levels() { client.advance(0); }  // the clock stands

  // Ports 1 to 3 of devices "a", "ab" and "b", where a byte comparison could go astray.
  void fill() {
    for (const char* device : {"a", "ab", "b"}) {
      for (unsigned number = 1; number <= 3; ++number) client.set(at(device, number, "rx:5"));
    }
  }
  std::vector<std::string> keys() {
    std::vector<std::string> found;
    for (const Seen& seen : client.scan_index(at("", 0), 0)) {
      if (seen.has_data) found.push_back(seen.key);
    }
    return found;
  }
  // Checks the replies of a command on a level and returns the identities acted on.
  static std::vector<std::string> acted(const std::vector<Seen>& replies, unsigned end_mark) {
    std::vector<std::string> found;
    EXPECT_FALSE(replies.empty());
    for (std::size_t i = 0; i < replies.size(); ++i) {
      EXPECT_FALSE(replies[i].has_data);
      EXPECT_EQ(replies[i].status, VU_MOM_OK);
      if (i + 1 < replies.size()) {
        EXPECT_EQ(replies[i].end_mark, 0u);
        EXPECT_EQ(replies[i].count, 0);
        found.push_back(replies[i].key);
      } else {
        EXPECT_EQ(replies[i].end_mark, end_mark);
        EXPECT_EQ(replies[i].count, static_cast<std::int64_t>(found.size()));
      }
    }
    return found;
  }
  std::vector<std::string> pexpire(const Live& message, std::uint32_t level, std::int32_t seconds,
                                   std::int32_t microseconds = 0) {
    return acted(client.ask_all(vu_mom_pexpire, 0, message, level, seconds, microseconds),
                 VU_MOM_END_PEXPIRE);
  }
  std::vector<std::string> pexpire_field(const Live& message, std::uint32_t level, std::int32_t tag,
                                         std::int32_t seconds) {
    return acted(client.ask_all(vu_mom_pexpire_field, 0, message, level, tag, seconds, 0),
                 VU_MOM_END_PEXPIRE_FIELD);
  }
  void hmset(const Live& message) {
    EXPECT_EQ(vu_mom_hmset(client.handle(), 0, message, nullptr, 0, nullptr, nullptr), VU_MOM_OK);
  }
  Seen hgetall(const Live& message) { return client.ask(vu_mom_hgetall, 0, message); }

  Client client;
};

TEST_F(Levels, PdelDeletesWhatMatches) {
  fill();
  const auto pdel = [&](const Live& message, std::uint32_t level) {
    return acted(client.ask_all(vu_mom_pdel, 0, message, level), VU_MOM_END_PDEL);
  };
  EXPECT_EQ(pdel(at("a", 9), 2), std::vector<std::string>{});
  EXPECT_EQ(pdel(at("a", 2), 2), std::vector<std::string>{port_key("a", 2)});
  EXPECT_EQ(pdel(at("ab", 9), 1),
            (std::vector<std::string>{port_key("ab", 1), port_key("ab", 2), port_key("ab", 3)}));
  EXPECT_EQ(keys().size(), 5u);
  EXPECT_EQ(pdel(at("b", 3), 4000000000u), std::vector<std::string>{port_key("b", 3)});
  EXPECT_EQ(pdel(at("", 0), 1), std::vector<std::string>{});
  EXPECT_EQ(pdel(at("", 0), 0).size(), 4u);
  EXPECT_EQ(keys(), std::vector<std::string>{});
}

TEST_F(Levels, PdelTakesEveryKind) {
  client.set(at("a", 1));
  hmset(at("a", 2, "rx:1"));
  client.send(vu_mom_rpush, 0, at("a", 3));
  client.send(vu_mom_sadd, 0, at("a", 4));
  const double score = 1;
  const Live scored = at("a", 5);
  const vu_mom_message address = scored;
  client.send(vu_mom_zadd, 0, &score, &address, 1);
  EXPECT_EQ(client.ask_all(vu_mom_pdel, 0, at("a", 0), 1u).size(), 6u);
  EXPECT_EQ(keys(), std::vector<std::string>{});
}

TEST_F(Levels, AnObjectExpires) {
  client.set(at("a", 1, "rx:1"));
  EXPECT_EQ(client.ask_all(vu_mom_pexpire, 0, at("a", 1), 2u, 1, 500000).back().count, 1);
  EXPECT_EQ(vu_platform_next_due(client.handle()), -1);  // the clock stands
  client.advance(1499999);
  EXPECT_TRUE(client.get(at("a", 1)).has_data);
  client.advance(1);
  EXPECT_EQ(vu_platform_next_due(client.handle()), 0);
  EXPECT_EQ(client.ask(vu_mom_setnx, 0, at("a", 1, "rx:2")).integer, 1);
  client.advance(1000 * kSecond);
  EXPECT_EQ(client.get(at("a", 1)).text(), at("a", 1, "rx:2").text());
}

TEST_F(Levels, WhatIsOverIsNeverSeenThoughNotSwept) {
  fill();
  pexpire(at("a", 0), 1, 1);
  client.advance(kSecond);
  // No delivery has swept: every road looks for itself.
  EXPECT_EQ(client.ask(vu_mom_del, 0, at("a", 1)).integer, 0);
  EXPECT_EQ(acted(client.ask_all(vu_mom_pdel, 0, at("a", 0), 1u), VU_MOM_END_PDEL).size(), 0u);
  EXPECT_EQ(keys().size(), 6u);
}

TEST_F(Levels, ScansSkipWhatIsOver) {
  fill();
  pexpire(at("", 0), 0, 1);
  client.set(at("b", 1));
  std::vector<Seen> seen;
  EXPECT_EQ(vu_mom_scan(client.handle(), 0, at("", 0), 0, &Client::on_stream, client.slot(0)),
            VU_MOM_OK);
  client.deliver(2);
  client.advance(kSecond);
  seen = client.drain();
  ASSERT_EQ(seen.size(), 4u);
  EXPECT_EQ(seen[2].key, port_key("b", 1));
  EXPECT_EQ(seen[3].count, 3);
}

TEST_F(Levels, LifetimesEndInOrderAndInBatches) {
  constexpr unsigned kObjects = 600;
  for (unsigned i = 0; i < kObjects; ++i) client.set(at("a", i));
  client.subscribe(at("a", 0), 1, 7);
  for (unsigned i = 0; i < kObjects; ++i) {
    client.send(vu_mom_pexpire, 0, at("a", i), 2u, static_cast<std::int32_t>(kObjects - i), 0);
  }
  client.advance(kObjects * kSecond);
  int sweeps = 0;
  while (vu_platform_next_due(client.handle()) == 0) {
    client.deliver(1000);
    ++sweeps;
  }
  EXPECT_GE(sweeps, 3);
  const std::vector<Seen> seen = client.take();
  ASSERT_EQ(seen.size(), kObjects);
  for (unsigned i = 0; i < kObjects; ++i) {
    EXPECT_EQ(seen[i].key, port_key("a", kObjects - 1 - i));
    EXPECT_EQ(seen[i].type_code, VU_MOM_TYPE_NONE);
    EXPECT_FALSE(seen[i].has_data);
  }
  EXPECT_EQ(keys(), std::vector<std::string>{});
}

TEST_F(Levels, ATimeOfZeroOrLessExpiresAtOnce) {
  fill();
  EXPECT_EQ(pexpire(at("a", 1), 2, 0).size(), 1u);
  EXPECT_EQ(pexpire(at("ab", 1), 1, -1, -500000).size(), 3u);
  EXPECT_EQ(keys().size(), 5u);
  EXPECT_EQ(pexpire(at("a", 1), 2, 0).size(), 0u);
}

TEST_F(Levels, SetClearsTheLifetimeUnlessToldToKeepIt) {
  client.set(at("a", 1));
  client.set(at("a", 2));
  client.set(at("a", 3));
  pexpire(at("a", 0), 1, 10);
  client.set(at("a", 1, "rx:1"));
  client.set(at("a", 2, "rx:1 note:'longer than it was before'"), VU_STORE_KEEP_LIFETIME);
  client.send(vu_mom_incr, 0, at("a", 3));
  client.advance(10 * kSecond);
  EXPECT_EQ(keys(), std::vector<std::string>{port_key("a", 1)});
}

TEST_F(Levels, ALaterLifetimeReplacesTheEarlier) {
  client.set(at("a", 1));
  client.set(at("a", 2));
  pexpire(at("a", 0), 1, 10);
  pexpire(at("a", 1), 2, 20);
  pexpire(at("a", 2), 2, 5);
  client.advance(5 * kSecond);
  EXPECT_EQ(keys(), std::vector<std::string>{port_key("a", 1)});
  client.advance(14 * kSecond);
  EXPECT_EQ(keys(), std::vector<std::string>{port_key("a", 1)});
  client.advance(kSecond);
  EXPECT_EQ(keys(), std::vector<std::string>{});
}

TEST_F(Levels, DelExpireKeepsObjects) {
  fill();
  pexpire(at("", 0), 0, 10);
  EXPECT_EQ(
      acted(client.ask_all(vu_mom_del_expire, 0, at("b", 0), 1u), VU_MOM_END_DEL_EXPIRE).size(),
      3u);
  client.advance(10 * kSecond);
  EXPECT_EQ(keys(),
            (std::vector<std::string>{port_key("b", 1), port_key("b", 2), port_key("b", 3)}));
}

TEST_F(Levels, DeletedAndReplacedObjectsLeaveNoLifetime) {
  client.set(at("a", 1));
  pexpire(at("a", 1), 2, 10);
  client.send(vu_mom_del, 0, at("a", 1));
  client.send(vu_mom_rpush, 0, at("a", 1));
  client.advance(20 * kSecond);
  EXPECT_EQ(client.ask(vu_mom_llen, 0, at("a", 1)).integer, 1);
  pexpire(at("a", 1), 2, 10);
  client.send(vu_mom_rpop, 0, at("a", 1));
  client.send(vu_mom_rpush, 0, at("a", 1));
  client.advance(20 * kSecond);
  EXPECT_EQ(client.ask(vu_mom_llen, 0, at("a", 1)).integer, 1);
}

TEST_F(Levels, AFieldExpires) {
  hmset(at("a", 1, "rx:5 note:'n'"));
  EXPECT_EQ(pexpire_field(at("a", 1), 2, 3, 10).size(), 1u);
  client.advance(10 * kSecond);
  const Seen seen = hgetall(at("a", 1));
  EXPECT_EQ(seen.tags, (std::vector<std::size_t>{1, 2, 4}));
  EXPECT_EQ(seen.text(), at("a", 1, "note:'n'").text());
}

TEST_F(Levels, AWriteToAFieldClearsItsLifetime) {
  hmset(at("a", 1, "rx:5 note:'n'"));
  const std::size_t both[] = {3, 4};
  EXPECT_EQ(client.ask_all(vu_mom_pexpire_fields, 0, at("a", 1), 2u, both, 2, 10, 0).size(), 2u);
  const std::size_t rx = 3;
  client.send(vu_mom_hmset, 0, at("a", 1, "rx:6"), &rx, 1);
  client.advance(10 * kSecond);
  EXPECT_EQ(hgetall(at("a", 1)).text(), at("a", 1, "rx:6").text());
}

TEST_F(Levels, HmsetOfTheWholeClearsTheObjectsLifetime) {
  hmset(at("a", 1, "rx:5"));
  hmset(at("a", 2, "rx:5"));
  hmset(at("a", 3, "rx:5"));
  pexpire(at("a", 0), 1, 10);
  hmset(at("a", 1, "rx:6"));
  const std::size_t rx = 3;
  client.send(vu_mom_hmset, 0, at("a", 2, "rx:6"), &rx, 1);  // not the whole
  client.send(vu_mom_hmupdate, 0, at("a", 3, "rx:6"), nullptr, 0);
  client.advance(10 * kSecond);
  EXPECT_EQ(keys(), std::vector<std::string>{port_key("a", 1)});
}

TEST_F(Levels, AHashGoesWithItsLastField) {
  const std::size_t fields[] = {3, 4};
  client.send(vu_mom_hmset, 0, at("a", 1, "rx:5 note:'n'"), fields, 2);
  pexpire_field(at("a", 1), 2, 3, 5);
  pexpire_field(at("a", 1), 2, 4, 9);
  client.advance(5 * kSecond);
  EXPECT_EQ(hgetall(at("a", 1)).tags, std::vector<std::size_t>{4});
  client.advance(4 * kSecond);
  EXPECT_FALSE(hgetall(at("a", 1)).has_data);
  client.send(vu_mom_hmset, 0, at("a", 1, "rx:5 note:'n'"), fields, 2);
  EXPECT_EQ(client.ask_all(vu_mom_pexpire_fields, 0, at("a", 1), 2u, fields, 2, 0, 0).size(), 2u);
  EXPECT_FALSE(hgetall(at("a", 1)).has_data);
  client.advance(100 * kSecond);
  EXPECT_EQ(keys(), std::vector<std::string>{});
}

TEST_F(Levels, FieldLifetimesActOnHashesThatHaveTheField) {
  client.set(at("a", 1, "rx:1"));
  hmset(at("a", 2, "rx:1"));
  hmset(at("a", 3, "note:'n'"));
  EXPECT_EQ(pexpire_field(at("a", 0), 1, 3, 10), std::vector<std::string>{port_key("a", 2)});
  const auto refused = client.ask_all(vu_mom_pexpire_field, 0, at("a", 1), 2u, 3, 10, 0);
  ASSERT_EQ(refused.size(), 1u);
  EXPECT_EQ(refused[0].status, VU_MOM_FAILED);
  EXPECT_EQ(refused[0].end_mark, static_cast<unsigned>(VU_MOM_END_PEXPIRE_FIELD));
  EXPECT_EQ(refused[0].count, 0);
  client.advance(10 * kSecond);
  EXPECT_EQ(client.get(at("a", 1)).text(), at("a", 1, "rx:1").text());
}

TEST_F(Levels, FieldNumbersOfLifetimesAreChecked) {
  vu_mom_handle* const handle = client.handle();
  const Live message = at("a", 1);
  for (const std::int32_t tag : {0, -1, 77, INT32_MIN}) {
    EXPECT_EQ(vu_mom_pexpire_field(handle, 0, message, 0, tag, 1, 0, nullptr, nullptr),
              VU_MOM_BAD_INPUT);
  }
  const std::size_t unknown = 77;
  EXPECT_EQ(vu_mom_pexpire_fields(handle, 0, message, 0, &unknown, 1, 1, 0, nullptr, nullptr),
            VU_MOM_BAD_INPUT);
  EXPECT_EQ(vu_mom_pexpire_fields(handle, 0, message, 0, nullptr, 1, 1, 0, nullptr, nullptr),
            VU_MOM_BAD_INPUT);
}

TEST_F(Levels, TheLongestLifetimeDoesNotOverflow) {
  client.set(at("a", 1));
  EXPECT_EQ(pexpire(at("a", 1), 2, INT32_MAX, 999999).size(), 1u);
  client.advance(2147483647 * kSecond);
  EXPECT_TRUE(client.get(at("a", 1)).has_data);
  client.advance(kSecond);
  EXPECT_FALSE(client.get(at("a", 1)).has_data);
}

TEST_F(Levels, NextDueFollowsTheRunningClock) {
  Client running("embedded:running clock");
  EXPECT_EQ(vu_platform_next_due(running.handle()), -1);
  running.set(at("a", 1));
  const int before = running.wakes();
  running.send(vu_mom_pexpire, 0, at("a", 1), 2u, 1000, 0);
  EXPECT_EQ(running.wakes(), before + 1);  // whoever sleeps has to look at its clock anew
  const std::int64_t due = vu_platform_next_due(running.handle());
  EXPECT_GT(due, 900 * kSecond);
  EXPECT_LE(due, 1000 * kSecond);
}

TEST_F(Levels, ScanDeliversEveryKindWithItsValue) {
  client.set(at("a", 1, "rx:1"));
  hmset(at("a", 2, "rx:2"));
  client.send(vu_mom_rpush, 0, at("a", 3, "rx:3"));
  client.send(vu_mom_rpush, 0, at("a", 3, "rx:4"));
  client.send(vu_mom_sadd, 0, at("a", 4, "rx:5"));
  const double score = 1.5;
  const Live scored = at("a", 5, "rx:6");
  const vu_mom_message address = scored;
  client.send(vu_mom_zadd, 0, &score, &address, 1);
  client.set(at("b", 1));

  const std::vector<Seen> seen = client.scan(at("a", 0), 1);
  ASSERT_EQ(seen.size(), 6u);
  for (unsigned i = 0; i < 5; ++i) {
    EXPECT_EQ(seen[i].key, port_key("a", i + 1));
    EXPECT_EQ(seen[i].end_mark, 0u);
  }
  EXPECT_EQ(seen[0].type_code, VU_MOM_TYPE_SET);
  EXPECT_EQ(seen[0].text(), at("a", 1, "rx:1").text());
  EXPECT_EQ(seen[1].type_code, VU_MOM_TYPE_HMSET);
  EXPECT_EQ(seen[1].payload, VU_PLATFORM_PAYLOAD_HASH);
  EXPECT_EQ(seen[1].tags, (std::vector<std::size_t>{1, 2, 3}));
  EXPECT_EQ(seen[2].type_code, VU_MOM_TYPE_LPUSH);
  EXPECT_EQ(seen[2].texts,
            (std::vector<std::string>{at("a", 3, "rx:3").text(), at("a", 3, "rx:4").text()}));
  EXPECT_EQ(seen[3].type_code, VU_MOM_TYPE_SADD);
  EXPECT_EQ(seen[4].type_code, VU_MOM_TYPE_ZADD);
  EXPECT_EQ(seen[4].scores, std::vector<double>{1.5});
  EXPECT_EQ(seen[5].type_code, VU_MOM_TYPE_NONE);
  EXPECT_EQ(seen[5].end_mark, static_cast<unsigned>(VU_MOM_END_SCAN));
  EXPECT_FALSE(seen[5].has_data);
  EXPECT_EQ(seen[5].count, 5);

  const std::vector<Seen> keys_only = client.scan_index(at("a", 0), 1);
  ASSERT_EQ(keys_only.size(), 6u);
  for (unsigned i = 0; i < 5; ++i) {
    EXPECT_EQ(keys_only[i].type_code, VU_MOM_TYPE_INDEX);
    EXPECT_EQ(keys_only[i].text(), at("a", i + 1).text());
  }
  EXPECT_EQ(keys_only[5].type_code, VU_MOM_TYPE_NONE);
}

TEST_F(Levels, ScanOfNothingIsItsEnd) {
  const std::vector<Seen> seen = client.scan(at("a", 0), 0);
  ASSERT_EQ(seen.size(), 1u);
  EXPECT_EQ(seen[0].end_mark, static_cast<unsigned>(VU_MOM_END_SCAN));
  EXPECT_EQ(seen[0].status, VU_MOM_OK);
  EXPECT_EQ(vu_mom_scan(client.handle(), 0, at("a", 0), 0, nullptr, nullptr), VU_MOM_OK);
  EXPECT_EQ(client.drain().size(), 0u);
}

TEST_F(Levels, ScanPausesAfterABatch) {
  for (unsigned i = 0; i < 1000; ++i) client.set(at("a", i));
  EXPECT_EQ(vu_mom_scan(client.handle(), 0, at("a", 0), 1, &Client::on_stream, client.slot(0)),
            VU_MOM_OK);
  std::size_t turns = 1;
  while (client.deliver(UINT32_MAX)) {
    EXPECT_EQ(client.take().size(), 256u);
    ++turns;
  }
  EXPECT_EQ(turns, 4u);
  EXPECT_EQ(client.take().size(), 1000u - 3 * 256 + 1);
}

TEST_F(Levels, ScanIsNotDisturbedByChanges) {
  for (unsigned i = 0; i < 2000; i += 2) client.set(at("a", i, "rx:1"));
  EXPECT_EQ(vu_mom_scan(client.handle(), 0, at("a", 0), 1, &Client::on_stream, client.slot(0)),
            VU_MOM_OK);
  std::multiset<std::string> seen;
  unsigned step = 0;
  bool more = true;
  while (more) {
    more = client.deliver(10);
    for (const Seen& one : client.take()) seen.insert(one.key);
    // Comes and goes and grows all around.
    for (unsigned i = 0; i < 20; ++i, ++step) {
      const unsigned number = step * 7919 % 2000;
      if (number % 2 == 1) {
        client.set(at("a", number));
      } else if (number % 4 == 0) {
        client.set(at("a", number, "note:'" + std::string(step % 200, 'x') + "'"));
      } else {
        client.send(vu_mom_del, 0, at("a", number));
      }
    }
  }
  for (unsigned i = 0; i < 2000; i += 4) {
    ASSERT_EQ(seen.count(port_key("a", i)), 1u) << i;
  }
}

TEST_F(Levels, TypesWithoutKeysHaveOneObject) {
  client.set(Live("Single", "text:'x'"));
  EXPECT_EQ(client.scan(Live("Single", ""), 0).size(), 2u);
  EXPECT_EQ(client.scan(Live("Single", ""), 9).size(), 2u);
  EXPECT_EQ(client.ask_all(vu_mom_pdel, 0, Live("Single", ""), 5u).back().count, 1);
  EXPECT_FALSE(client.get(Live("Single", "")).has_data);
}

}  // namespace
}  // namespace vu::store::test
