// The functions in a real server: lifetimes, many objects at once, scans, sweeping.
#include <gtest/gtest.h>
#include <hiredis/hiredis.h>

#include <algorithm>

#include "functions_fixture.h"

namespace vu::testing {
namespace {

TEST_F(Functions, Lifetimes) {
  stop_clock();
  watch();
  watch(3);
  run(Command::kSet, "rx: 1");
  EXPECT_EQ(expire(1000), "a/0/ 0 end 2 of 1");
  EXPECT_EQ(sweep(), 1000);
  pass(999);
  EXPECT_EQ(run(Command::kIncr), "0 = 1");
  EXPECT_EQ(sweep(), 1);
  pass(1);
  EXPECT_EQ(run(Command::kGet), "0");
  EXPECT_EQ(told(), (Lines{"1 " + kA + " rx: 1}", "1 field 3 " + kA + " rx: 1}",
                           "3 " + kA + " rx: 1 hits: 1}"}));
  EXPECT_EQ(sweep(), -1);
  EXPECT_EQ(told(), (Lines{"0", "0 field 3"}));
  EXPECT_EQ(keys(), "[]");

  run(Command::kSadd, "rx: 1");
  expire(1000);
  pass(1000);
  EXPECT_EQ(run(Command::kSadd, "rx: 1"), "0 = 1");  // another set
  EXPECT_EQ(told(), (Lines{"18 " + kA + " rx: 1}", "0", "18 " + kA + " rx: 1}"}));
  EXPECT_EQ(expire(0), "a/0/ 0 end 2 of 1");
  EXPECT_EQ(told(), Lines{"0"});
  EXPECT_EQ(keys(), "[]");

  run(Command::kSet, "rx: 1");
  expire(1000);
  Request keeping = port(Command::kSet, "rx: 2");
  keeping.keep_lifetime = true;
  run(keeping);
  EXPECT_EQ(sweep(), 1000);
  run(Command::kSet, "rx: 3");
  EXPECT_EQ(sweep(), -1);
  expire(1000);
  EXPECT_EQ(run(Command::kDelExpire), "a/0/ 0 end 3 of 1");
  EXPECT_EQ(sweep(), -1);
  EXPECT_EQ(run(Command::kDel), "0 = 1");
  EXPECT_EQ(keys(), "[]");
}

TEST_F(Functions, LifetimesByTheServersClock) {
  run(Command::kSet, "rx: 1");
  expire(100'000);
  const std::int64_t left = sweep();
  EXPECT_GT(left, 0);
  EXPECT_LE(left, 100'000);
  EXPECT_EQ(run(Command::kGet), "1 " + kA + " rx: 1}");
  while (run(Command::kGet) != "0") sleep_ms(1);
  // What a native read does not see any more, a function does not see either.
  EXPECT_EQ(run(Command::kSetnx), "0 = 1");
  EXPECT_EQ(run(Command::kDel), "0 = 1");
  EXPECT_EQ(keys(), "[]");
}

TEST_F(Functions, LifetimesOfFields) {
  stop_clock();
  watch();
  watch(3);
  run(Command::kHmset, "rx: 1 note: 'n' speed: 2");
  EXPECT_EQ(expire_fields(1000, {3, 4, 5}), "a/0/ 0 end 4 of 1");
  EXPECT_EQ(fields(Command::kHmset, "note: 'm'", {4}), "0 = 1");  // clears its lifetime
  told();
  pass(1000);
  EXPECT_EQ(run(Command::kHgetall), "4 " + kA + " note: \"m\" speed: 2} tags 1 4 8");
  Request named = port(Command::kHmget);
  named.tags = {3};
  EXPECT_EQ(run(named), "4 " + kA + "} tags 3");
  EXPECT_EQ(told(), Lines{});
  EXPECT_EQ(run(Command::kHmupdate, "rx: 2"), "0 = 2");
  EXPECT_EQ(told(), (Lines{"0 field 3", "0 field 3", "9 " + kA + " rx: 2} tags 1 3",
                           "9 field 3 " + kA + " rx: 2} tags 3"}));
  EXPECT_EQ(sweep(), -1);

  // The last fields end: so does the hash, without an event of its own.
  EXPECT_EQ(expire_fields(500, {4, 8, 1}), "a/0/ 0 end 4 of 1");
  EXPECT_EQ(expire_fields(200, {3}), "a/0/ 0 end 4 of 1");
  pass(500);
  EXPECT_EQ(run(Command::kHgetall), "0");
  EXPECT_EQ(run(Command::kGet), "0");
  EXPECT_EQ(run(Command::kLlen), "0 = 0");
  EXPECT_EQ(sweep(), -1);
  EXPECT_EQ(told(), (Lines{"0 field 3", "0 field 3", "0 field 1", "0 field 4", "0 field 8"}));
  EXPECT_EQ(keys(), "[]");

  run(Command::kHmset, "rx: 1");
  expire_fields(1000, {3});
  expire(500);
  told();
  pass(2000);
  EXPECT_EQ(sweep(), -1);
  EXPECT_EQ(told(), (Lines{"0", "0 field 3"}));  // with its object, which ended before it
  EXPECT_EQ(keys(), "[]");
}

TEST_F(Functions, Levels) {
  stop_clock();
  for (const char* text : {"device: 'a' number: 1", "device: 'a' number: 10",
                           "device: 'aa' number: 1", "device: 'b' number: 2"}) {
    run(request(Command::kRpush, "Port", text));
  }
  Request made = port(Command::kPexpire);
  made.level = 1;
  made.lifetime_us = 10;
  EXPECT_EQ(run(made), "a/1/ a/10/ 0 end 2 of 2");
  Request cleared = port(Command::kDelExpire);
  cleared.level = 0;
  EXPECT_EQ(run(cleared).substr(run(cleared).find(" 0 end")), " 0 end 3 of 4");
  EXPECT_EQ(run(made), "a/1/ a/10/ 0 end 2 of 2");
  pass(10);
  Request deleted = port(Command::kPdel);
  deleted.level = 1;
  EXPECT_EQ(run(deleted), "0 end 5 of 0");
  deleted.level = 0;
  EXPECT_EQ(run(deleted), "b/2/ aa/1/ 0 end 5 of 2");
  EXPECT_EQ(keys(), "[]");
}

TEST_F(Functions, LevelsOfSubscriptions) {
  watch(0, 0);
  watch(0, 1);
  watch(0, 2);
  run(Command::kSet, "rx: 1");
  EXPECT_EQ(told(), (Lines(3, "1 " + kA + " rx: 1}")));
  run(Command::kSet, "number: 1");
  EXPECT_EQ(told(), (Lines(2, "1 " + kA + " number: 1}")));
  EXPECT_EQ(run(Command::kPublish, "rx: 5"), "0 = 3");
  EXPECT_EQ(told(), (Lines(3, "24 " + kA + " rx: 5}")));
  EXPECT_EQ(run(request(Command::kPublish, "Port", "device: 'b'")), "0 = 1");
}

TEST_F(Functions, SeveralPublications) {
  bench_.watch("Port", "device: 'a'", 1, 0);
  bench_.watch("Single", "", 0, 0);
  std::vector<Request> requests;
  requests.push_back(request(Command::kPublish, "Port", "device: 'a' number: 1 rx: 1"));
  requests.push_back(request(Command::kPublish, "Port", "device: 'b' number: 1 rx: 2"));
  requests.push_back(request(Command::kPublish, "Single", "text: 'x'"));
  requests.push_back(request(Command::kPublish, "Port", "device: 'a' number: 2 rx: 3"));
  EXPECT_EQ(bench_.run_batch(requests), (Lines{"0 = 1", "0 = 0", "0 = 1", "0 = 1"}));
  EXPECT_EQ(told(), (Lines{"24 {device: \"a\" number: 1 rx: 1}", "24 {text: \"x\"}",
                           "24 {device: \"a\" number: 2 rx: 3}"}));
}

TEST_F(Functions, WhatIsOverEndsBeforeItIsPublished) {
  stop_clock();
  watch();
  run(Command::kSet, "rx: 1");
  expire(1000);
  pass(1000);
  told();
  EXPECT_EQ(bench_.run_batch({port(Command::kPublish, "rx: 2"), port(Command::kPublish, "rx: 3")}),
            (Lines{"0 = 1", "0 = 1"}));
  EXPECT_EQ(told(), (Lines{"0", "24 " + kA + " rx: 2}", "24 " + kA + " rx: 3}"}));
}

TEST_F(Functions, Scans) {
  std::size_t expected = 0;
  for (int i = 0; i < 300; ++i) {
    const std::string text = "device: 'a' number: " + std::to_string(i) + " rx: 1";
    const Command kinds[] = {Command::kSet, Command::kHmset, Command::kLpush, Command::kSadd};
    run(request(kinds[i % 4], "Port", text));
    ++expected;
  }
  run(request(Command::kSet, "Port", "device: 'b'"));
  for (const Command command : {Command::kScan, Command::kScanIndex}) {
    for (const int partition : {-1, 5}) {
      Request scan = port(command);
      scan.level = 1;
      std::string position;
      std::vector<store::Notice> objects;
      store::Notice last;
      std::size_t batches = 0;
      do {
        const Reply reply =
            bench_.send(store::encode_scan(scan, bench_.place, partition, position, 7));
        ASSERT_TRUE(store::decode_scan(scan, *reply, 0, objects, position, last)) << last.error;
        ++batches;
      } while (!position.empty());
      std::vector<std::string> identities;
      for (const store::Notice& notice : objects) {
        identities.push_back(notice.identity);
        const bool at_partition =
            partition < 0 || store::partition_of(0, *scan.type, notice.identity) == 5;
        EXPECT_TRUE(at_partition);
      }
      std::sort(identities.begin(), identities.end());
      EXPECT_EQ(std::unique(identities.begin(), identities.end()), identities.end());
      if (partition < 0) {
        EXPECT_EQ(objects.size(), expected);
        EXPECT_EQ(batches, expected / 7 + 1);
      }
      ASSERT_FALSE(objects.empty());
    }
  }
  bench_.server.call({"FUNCTION", "FLUSH"});
  std::vector<store::Notice> objects;
  std::string position;
  store::Notice last;
  const Reply reply =
      bench_.send(store::encode_scan(port(Command::kScan), bench_.place, -1, "", 9));
  EXPECT_TRUE(store::says_function_is_missing(*reply));
  EXPECT_FALSE(store::decode_scan(port(Command::kScan), *reply, 0, objects, position, last));
  EXPECT_EQ(last.status, VU_MOM_FAILED);
  EXPECT_EQ(last.end_mark, 1U);
}

TEST_F(Functions, Leases) {
  const auto lease = [this](const char* holder) {
    return bench_.send(store::encode_lease(bench_.place, -1, holder, 50))->integer;
  };
  EXPECT_EQ(lease("one"), 1);
  EXPECT_EQ(lease("two"), 0);
  EXPECT_EQ(lease("one"), 1);
  sleep_ms(60);
  EXPECT_EQ(lease("two"), 1);
}

TEST_F(Functions, DueInTheOrderOfDeadlines) {
  stop_clock();
  bench_.watch("Port", "", 0, 0);
  for (int i = 9; i >= 0; --i) {
    const std::string text = "device: 'a' number: " + std::to_string(i);
    run(request(Command::kRpush, "Port", text));
    Request made = request(Command::kPexpire, "Port", text);
    made.lifetime_us = 100 + i * 7 % 10;
    run(made);
  }
  told();
  pass(103);
  EXPECT_EQ(bench_.send(store::encode_sweep(bench_.place, -1, 3))->integer, 0);
  EXPECT_EQ(told().size(), 3U);
  EXPECT_EQ(sweep(), 1);
  EXPECT_EQ(told().size(), 1U);
  pass(100);
  EXPECT_EQ(sweep(), -1);
  EXPECT_EQ(told().size(), 6U);
  EXPECT_EQ(keys(), "[]");
}

}  // namespace
}  // namespace vu::testing
