// Subscriptions, events, publishing.
#include <cstdlib>

#include "store_fixture.h"

namespace vu::store::test {
namespace {

using Labels = std::vector<int>;

Labels labels(const std::vector<Seen>& seen) {
  Labels all;
  for (const Seen& one : seen) all.push_back(one.label);
  return all;
}

class Subscriptions : public testing::Test {
 protected:
  // The one event that came.
  Seen event() {
    const std::vector<Seen> seen = client.events();
    EXPECT_EQ(seen.size(), 1u);
    return seen.empty() ? Seen() : seen[0];
  }
  void expect_quiet() { EXPECT_EQ(client.events().size(), 0u); }
  void hmset(const std::string& rest, std::vector<std::size_t> tags) {
    client.send(vu_mom_hmset, 0, at("a", 1, rest), tags.data(),
                static_cast<std::int32_t>(tags.size()));
  }
  void zadd(double score, const std::string& rest) {
    const Live message = at("a", 1, rest);
    const vu_mom_message address = message;
    client.send(vu_mom_zadd, 0, &score, &address, 1);
  }
  Client client;
};

TEST_F(Subscriptions, ReachTheLevelsTheyAreFor) {
  client.subscribe(at("", 0), 0, 10);
  client.subscribe(at("a", 0), 1, 11);
  client.subscribe(at("a", 1), 2, 12);
  client.subscribe(at("a", 1), 99, 13);  // more than there are: all of them
  client.subscribe(at("b", 0), 1, 14);
  client.subscribe(at("a", 1), 2, 15, /*db=*/1);
  client.set(at("a", 1));
  EXPECT_EQ(labels(client.events()), (Labels{10, 11, 12, 13}));
  client.set(at("a", 2));
  EXPECT_EQ(labels(client.events()), (Labels{10, 11}));
  client.set(at("ab", 1));
  EXPECT_EQ(labels(client.events()), Labels{10});
  client.set(Live("Every", ""));
  expect_quiet();
  client.set(at("a", 1), 0, /*db=*/1);
  EXPECT_EQ(labels(client.events()), Labels{15});
}

TEST_F(Subscriptions, SingleValuesTellTheirChanges) {
  client.subscribe(at("a", 1), 2, 1);
  client.set(at("a", 1, "rx:1"));
  Seen seen = event();
  EXPECT_EQ(seen.type_code, VU_MOM_TYPE_SET);
  EXPECT_EQ(seen.text(), at("a", 1, "rx:1").text());
  EXPECT_EQ(seen.key, port_key("a", 1));
  EXPECT_EQ(seen.tag, 0u);
  EXPECT_GT(seen.time_us, 0);
  client.ask(vu_mom_incr, 0, at("a", 1));
  seen = event();
  EXPECT_EQ(seen.type_code, VU_MOM_TYPE_INCR);
  EXPECT_EQ(seen.text(), at("a", 1, "rx:1 hits:1").text());
  client.send(vu_mom_setnx, 0, at("a", 1, "rx:2"));
  expect_quiet();
  client.send(vu_mom_del, 0, at("a", 1));
  seen = event();
  EXPECT_EQ(seen.type_code, VU_MOM_TYPE_DELETED);
  EXPECT_FALSE(seen.has_data);
  client.send(vu_mom_del, 0, at("a", 1));
  expect_quiet();
  client.send(vu_mom_setnx, 0, at("a", 1, "rx:2"));
  EXPECT_EQ(event().type_code, VU_MOM_TYPE_SET);
}

TEST_F(Subscriptions, QuietWritesTellNothing) {
  client.subscribe(at("a", 1), 2, 1);
  client.subscribe_field(at("a", 1), 2, 3, 2);
  client.set(at("a", 1, "rx:1"), VU_STORE_QUIET);
  std::int32_t flag = VU_STORE_QUIET | VU_STORE_KEEP_LIFETIME;
  EXPECT_EQ(vu_mom_setow_ext(client.handle(), 0, &flag, at("a", 1, "rx:2"), nullptr, nullptr, 1),
            VU_MOM_OK);
  EXPECT_EQ(vu_mom_del_ow_ext(client.handle(), 0, &flag, at("a", 1), nullptr, nullptr, 1),
            VU_MOM_OK);
  EXPECT_EQ(flag, VU_STORE_QUIET | VU_STORE_KEEP_LIFETIME);
  expect_quiet();
  EXPECT_FALSE(client.get(at("a", 1)).has_data);
  flag = 0;
  vu_mom_setow_ext(client.handle(), 0, &flag, at("a", 1, "rx:2"), nullptr, nullptr, 1);
  vu_mom_del_ow_ext(client.handle(), 0, &flag, at("a", 1), nullptr, nullptr, 2);  // refused
  vu_mom_del_ow_ext(client.handle(), 0, &flag, at("a", 1), nullptr, nullptr, 1);
  const std::vector<Seen> seen = client.events();
  ASSERT_EQ(labels(seen), (Labels{1, 2, 1, 2}));
  EXPECT_EQ(seen[2].type_code, VU_MOM_TYPE_DELETED);
  EXPECT_EQ(seen[3].type_code, VU_MOM_TYPE_DELETED);
}

TEST_F(Subscriptions, HashesTellTheFieldsConcerned) {
  client.subscribe(at("a", 1), 2, 1);
  hmset("rx:1 note:'n'", {3, 4});
  Seen seen = event();
  EXPECT_EQ(seen.type_code, VU_MOM_TYPE_HMSET);
  EXPECT_EQ(seen.payload, VU_PLATFORM_PAYLOAD_HASH);
  EXPECT_EQ(seen.tags, (std::vector<std::size_t>{3, 4}));
  EXPECT_EQ(seen.text(), at("a", 1, "rx:1 note:'n'").text());
  hmset("rx:2", {3, 4, 6});  // 4 is deleted
  seen = event();
  EXPECT_EQ(seen.tags, (std::vector<std::size_t>{3, 4, 6}));
  EXPECT_EQ(seen.text(), at("a", 1, "rx:2").text());
  hmset("", {4, 6});  // nothing there
  expect_quiet();
  const std::size_t note = 4;
  client.send(vu_mom_hmsetnx, 0, at("a", 1, "note:'m'"), &note, 1);
  EXPECT_EQ(event().type_code, VU_MOM_TYPE_HMSETNX);
  client.send(vu_mom_hmsetnx, 0, at("a", 1, "note:'m'"), &note, 1);
  expect_quiet();
  client.send(vu_mom_hmupdate, 0, at("a", 1, "note:'o'"), &note, 1);
  EXPECT_EQ(event().type_code, VU_MOM_TYPE_HMUPDATE);
  client.send(vu_mom_hmupdate, 0, at("a", 2, "note:'o'"), &note, 1);
  expect_quiet();
  hmset("", {3, 4});  // and so the hash is gone, without an event of its own
  EXPECT_EQ(event().type_code, VU_MOM_TYPE_HMSET);
}

TEST_F(Subscriptions, ListsAndSetsTellTheirElements) {
  client.subscribe(at("a", 1), 2, 1);
  const auto expect = [&](int type_code, const std::vector<std::string>& rests) {
    const Seen seen = event();
    EXPECT_EQ(seen.type_code, type_code);
    EXPECT_EQ(seen.payload, VU_PLATFORM_PAYLOAD_MESSAGES);
    std::vector<std::string> texts;
    for (const auto& rest : rests) texts.push_back(at("a", 1, rest).text());
    EXPECT_EQ(seen.texts, texts);
  };
  client.send(vu_mom_rpush, 0, at("a", 1, "rx:1"));
  expect(VU_MOM_TYPE_RPUSH, {"rx:1"});
  client.send(vu_mom_lpush, 0, at("a", 1, "rx:2"));
  expect(VU_MOM_TYPE_LPUSH, {"rx:2"});
  client.send(vu_mom_linsert, 0, at("a", 1, "rx:1"), at("a", 1, "rx:2"), 0);
  expect(VU_MOM_TYPE_LINSERT, {"rx:2"});
  client.send(vu_mom_lrem, 0, at("a", 1, "rx:2"), std::size_t{0});
  expect(VU_MOM_TYPE_LREM, {"rx:2", "rx:2"});
  client.send(vu_mom_lset, 0, at("a", 1, "rx:3"), 0);
  expect(VU_MOM_TYPE_LSET, {"rx:3"});
  client.send(vu_mom_lset, 0, at("a", 1, "rx:4"), 5);
  client.send(vu_mom_lrem, 0, at("a", 1, "rx:4"), std::size_t{0});
  client.send(vu_mom_linsert, 0, at("a", 1, "rx:7"), at("a", 1, "rx:2"), 0);
  expect_quiet();
  client.send(vu_mom_rpush, 0, at("a", 1, "rx:1"));
  expect(VU_MOM_TYPE_RPUSH, {"rx:1"});
  client.send(vu_mom_lpop, 0, at("a", 1));
  expect(VU_MOM_TYPE_LPOP, {"rx:3"});
  client.send(vu_mom_rpop, 0, at("a", 1));
  expect(VU_MOM_TYPE_RPOP, {"rx:1"});
  client.send(vu_mom_rpop, 0, at("a", 1));
  expect_quiet();

  client.send(vu_mom_sadd, 0, at("a", 1, "rx:1"));
  expect(VU_MOM_TYPE_SADD, {"rx:1"});
  client.send(vu_mom_sadd, 0, at("a", 1, "rx:1"));
  client.send(vu_mom_srem, 0, at("a", 1, "rx:2"));
  expect_quiet();
  client.send(vu_mom_srem, 0, at("a", 1, "rx:1"));
  expect(VU_MOM_TYPE_SREM, {"rx:1"});
}

TEST_F(Subscriptions, SortedSetsTellMembersAndScores) {
  client.subscribe(at("a", 1), 2, 1);
  const auto expect = [&](int type_code, const std::vector<double>& scores) {
    const Seen seen = event();
    EXPECT_EQ(seen.type_code, type_code);
    EXPECT_EQ(seen.payload, VU_PLATFORM_PAYLOAD_SCORED);
    EXPECT_EQ(seen.scores, scores);
    EXPECT_EQ(seen.texts.size(), scores.size());
  };
  zadd(1, "rx:1");
  expect(VU_MOM_TYPE_ZADD, {1});
  zadd(1, "rx:1");
  expect_quiet();
  zadd(2, "rx:1");
  expect(VU_MOM_TYPE_ZADD, {2});
  for (int i = 3; i < 8; ++i) zadd(i, "rx:" + std::to_string(i));
  client.events();
  client.send(vu_mom_zremrangebyscore, 0, at("a", 1), 3.0, 4.0);
  expect(VU_MOM_TYPE_ZREMRANGEBYSCORE, {3, 4});
  client.send(vu_mom_zremrangebyscore, 0, at("a", 1), 3.0, 4.0);
  expect_quiet();
  client.send(vu_mom_zremrangebyrank, 0, at("a", 1), -1, -1);
  expect(VU_MOM_TYPE_ZREMRANGEBYRANK, {7});
  const Live member = at("a", 1, "rx:5");
  auto* const addresses = static_cast<vu_mom_message*>(std::malloc(sizeof(vu_mom_message)));
  addresses[0] = member;
  client.send(vu_mom_zrem, 0, addresses, 1);
  expect(VU_MOM_TYPE_ZREM, {5});
}

TEST_F(Subscriptions, LevelCommandsTellEachObject) {
  client.advance(0);
  for (unsigned i = 1; i <= 3; ++i) client.set(at("a", i));
  client.subscribe(at("a", 0), 1, 1);
  client.send(vu_mom_pexpire, 0, at("a", 1), 2u, 5, 0);
  client.send(vu_mom_del_expire, 0, at("a", 2), 2u);
  expect_quiet();
  client.advance(5 * kSecond);
  Seen seen = event();
  EXPECT_EQ(seen.type_code, VU_MOM_TYPE_NONE);
  EXPECT_EQ(seen.key, port_key("a", 1));
  EXPECT_EQ(seen.tag, 0u);
  client.send(vu_mom_pexpire, 0, at("a", 2), 2u, 0, 0);
  EXPECT_EQ(event().type_code, VU_MOM_TYPE_NONE);
  client.send(vu_mom_pdel, 0, at("a", 0), 1u);
  seen = event();
  EXPECT_EQ(seen.type_code, VU_MOM_TYPE_DELETED);
  EXPECT_EQ(seen.key, port_key("a", 3));
}

TEST_F(Subscriptions, AnExpiredObjectIsToldBeforeItsSuccessor) {
  client.advance(0);
  client.set(at("a", 1, "rx:1"));
  client.subscribe(at("a", 1), 2, 1);
  client.send(vu_mom_pexpire, 0, at("a", 1), 2u, 5, 0);
  client.advance(5 * kSecond);
  client.set(at("a", 1, "rx:2"));
  const std::vector<Seen> seen = client.events();
  ASSERT_EQ(seen.size(), 2u);
  EXPECT_EQ(seen[0].type_code, VU_MOM_TYPE_NONE);
  EXPECT_EQ(seen[1].type_code, VU_MOM_TYPE_SET);
}

TEST_F(Subscriptions, FieldsOfHashes) {
  client.advance(0);
  client.subscribe_field(at("a", 0), 1, 3, 30);
  client.subscribe_field(at("a", 1), 2, 4, 40);
  hmset("rx:1 note:'n' hits:1", {3, 4, 6});
  std::vector<Seen> seen = client.events();
  ASSERT_EQ(labels(seen), (Labels{30, 40}));
  EXPECT_EQ(seen[0].type_code, VU_MOM_TYPE_HMSET);
  EXPECT_EQ(seen[0].tag, 3u);
  EXPECT_EQ(seen[0].tags, std::vector<std::size_t>{3});
  EXPECT_EQ(seen[0].text(), at("a", 1, "rx:1").text());
  EXPECT_EQ(seen[1].tag, 4u);
  EXPECT_EQ(seen[1].text(), at("a", 1, "note:'n'").text());
  hmset("hits:2", {6});
  expect_quiet();
  hmset("rx:2", {3, 4});
  seen = client.events();
  ASSERT_EQ(labels(seen), (Labels{30, 40}));
  EXPECT_EQ(seen[1].type_code, VU_MOM_TYPE_DELETED);
  EXPECT_EQ(seen[1].tag, 4u);
  EXPECT_FALSE(seen[1].has_data);
  client.send(vu_mom_pexpire_field, 0, at("a", 1), 2u, 3, 5, 0);
  expect_quiet();
  client.advance(5 * kSecond);
  seen = client.events();
  ASSERT_EQ(labels(seen), Labels{30});
  EXPECT_EQ(seen[0].type_code, VU_MOM_TYPE_NONE);
  EXPECT_EQ(seen[0].tag, 3u);
  EXPECT_FALSE(seen[0].has_data);
  hmset("rx:2 note:'x'", {3, 4});
  client.events();
  client.send(vu_mom_pdel, 0, at("", 0), 0u);
  seen = client.events();
  ASSERT_EQ(labels(seen), (Labels{30, 40}));
  EXPECT_EQ(seen[0].type_code, VU_MOM_TYPE_DELETED);
}

TEST_F(Subscriptions, FieldsOfSingleValues) {
  client.advance(0);
  client.subscribe_field(at("a", 1), 2, 3, 30);
  client.subscribe_field(at("a", 1), 2, 6, 60);
  client.subscribe_field(at("a", 1), 2, 1, 10);  // a key field: carried by every one
  client.set(at("a", 1, "rx:1 note:'n'"));
  std::vector<Seen> seen = client.events();
  ASSERT_EQ(labels(seen), (Labels{10, 30}));
  EXPECT_EQ(seen[1].type_code, VU_MOM_TYPE_SET);
  EXPECT_EQ(seen[1].tag, 3u);
  EXPECT_EQ(seen[1].text(), at("a", 1, "rx:1").text());
  client.ask(vu_mom_incr, 0, at("a", 1));
  seen = client.events();
  ASSERT_EQ(labels(seen), Labels{60});  // writes no other field
  EXPECT_EQ(seen[0].type_code, VU_MOM_TYPE_INCR);
  EXPECT_EQ(seen[0].text(), at("a", 1, "hits:1").text());
  client.set(at("a", 1, "note:'n'"));  // without what it carried
  seen = client.events();
  ASSERT_EQ(labels(seen), (Labels{10, 30, 60}));
  EXPECT_EQ(seen[1].type_code, VU_MOM_TYPE_DELETED);
  EXPECT_FALSE(seen[1].has_data);
  client.set(at("a", 1, "rx:4"));
  client.events();
  client.send(vu_mom_pexpire, 0, at("a", 1), 2u, 0, 0);
  seen = client.events();
  ASSERT_EQ(labels(seen), (Labels{10, 30}));
  EXPECT_EQ(seen[1].type_code, VU_MOM_TYPE_NONE);
}

TEST_F(Subscriptions, TheWholeObjectHearsOfAFieldThatExpires) {
  client.advance(0);
  hmset("rx:1 note:'n'", {3, 4});
  client.subscribe(at("a", 1), 2, 1);
  client.send(vu_mom_pexpire_field, 0, at("a", 1), 2u, 3, 5, 0);
  client.advance(5 * kSecond);
  const Seen seen = event();
  EXPECT_EQ(seen.type_code, VU_MOM_TYPE_NONE);
  EXPECT_EQ(seen.tag, 3u);
}

TEST_F(Subscriptions, WhatEndsTogetherIsToldInOneOrder) {
  for (const bool swept : {true, false}) {
    client.advance(0);
    hmset("rx:1 note:'n' hits:1", {3, 4, 6});
    client.send(vu_mom_pexpire, 0, at("a", 1), 2u, 5, 0);
    for (const std::int32_t tag : {6, 4}) {
      client.send(vu_mom_pexpire_field, 0, at("a", 1), 2u, tag, 5, 0);
    }
    client.subscribe(at("a", 1), 2, 1);
    client.advance(5 * kSecond);
    if (!swept) client.send(vu_mom_llen, 0, at("a", 1));
    std::vector<unsigned> tags;
    for (const Seen& seen : client.events()) {
      EXPECT_EQ(seen.type_code, VU_MOM_TYPE_NONE);
      tags.push_back(seen.tag);
    }
    EXPECT_EQ(tags, (std::vector<unsigned>{4, 6, 0}));
    vu_mom_unsubscribe(client.handle(), 0, at("a", 1), 2, nullptr, nullptr);
    client.events();
  }
}

TEST_F(Subscriptions, UnsubscribeEndsTheCallersOwn) {
  Client other;
  other.subscribe(at("a", 0), 1, 5);
  client.subscribe(at("a", 1), 1, 1);
  client.subscribe(at("a", 2), 1, 2);  // the same: only the leading component counts
  client.subscribe(at("a", 0), 0, 3);
  client.subscribe(at("b", 0), 1, 4);
  client.subscribe_field(at("a", 0), 1, 3, 6);
  client.set(at("a", 7, "rx:1"));
  EXPECT_EQ(vu_mom_unsubscribe(client.handle(), 0, at("a", 9), 1, nullptr, nullptr), VU_MOM_OK);
  client.set(at("a", 7, "rx:2"));
  const std::vector<Seen> seen = client.events();
  // What happened before is delivered before the end.
  ASSERT_EQ(labels(seen), (Labels{3, 1, 2, 6, 1, 2, 3, 6}));
  for (const std::size_t i : {4u, 5u}) {
    EXPECT_EQ(seen[i].type_code, VU_MOM_TYPE_SUBSCRIPTION_ENDED);
    EXPECT_EQ(seen[i].status, VU_MOM_OK);
    EXPECT_FALSE(seen[i].has_data);
    EXPECT_GT(seen[i].time_us, 0);
  }
  EXPECT_EQ(labels(other.events()), (Labels{5, 5}));
  EXPECT_EQ(vu_mom_unsubscribe(client.handle(), 0, at("a", 9), 1, nullptr, nullptr), VU_MOM_OK);
  expect_quiet();
}

TEST_F(Subscriptions, UnsubscribeFieldEndsTheNamedFields) {
  for (const std::size_t tag : {3u, 4u, 6u}) {
    client.subscribe_field(at("a", 1), 2, tag, static_cast<int>(tag));
  }
  client.subscribe(at("a", 1), 2, 1);
  const std::size_t tags[] = {6, 3};
  EXPECT_EQ(vu_mom_unsubscribe_field(client.handle(), 0, at("a", 1), 2, tags, nullptr, nullptr, 2),
            VU_MOM_OK);
  std::vector<Seen> seen = client.events();
  ASSERT_EQ(labels(seen), (Labels{3, 6}));
  EXPECT_EQ(seen[0].type_code, VU_MOM_TYPE_SUBSCRIPTION_ENDED);
  EXPECT_EQ(seen[0].tag, 3u);
  client.set(at("a", 1, "rx:1 note:'n' hits:1"));
  EXPECT_EQ(labels(client.events()), (Labels{1, 4}));
}

TEST_F(Subscriptions, BadInput) {
  vu_mom_handle* const handle = client.handle();
  const Live message = at("a", 1);
  const std::size_t tags[] = {3, 77};
  const std::size_t good[] = {3, 4};
  const vu_mom_stream_cb callbacks[] = {&Client::on_stream, &Client::on_stream};
  const vu_mom_stream_cb holes[] = {&Client::on_stream, nullptr};
  void* const privdata[] = {client.slot(1), client.slot(2)};
  EXPECT_EQ(vu_mom_subscribe(handle, 0, message, 0, nullptr, nullptr), VU_MOM_BAD_INPUT);
  EXPECT_EQ(vu_mom_subscribe(handle, -1, message, 0, &Client::on_stream, nullptr),
            VU_MOM_BAD_INPUT);
  EXPECT_EQ(vu_mom_subscribe(handle, 0, 0, 0, &Client::on_stream, nullptr), VU_MOM_BAD_INPUT);
  const auto field = [&](const std::size_t* fields, const vu_mom_stream_cb* functions,
                         void* const* contexts, std::int32_t count) {
    return vu_mom_subscribe_field(handle, 0, message, 2, fields, functions, contexts, count);
  };
  EXPECT_EQ(field(tags, callbacks, privdata, 2), VU_MOM_BAD_INPUT);
  EXPECT_EQ(field(nullptr, callbacks, privdata, 2), VU_MOM_BAD_INPUT);
  EXPECT_EQ(field(good, nullptr, privdata, 2), VU_MOM_BAD_INPUT);
  EXPECT_EQ(field(good, callbacks, nullptr, 2), VU_MOM_BAD_INPUT);
  EXPECT_EQ(field(good, holes, privdata, 2), VU_MOM_BAD_INPUT);
  EXPECT_EQ(field(good, callbacks, privdata, -2), VU_MOM_BAD_INPUT);
  EXPECT_EQ(field(nullptr, nullptr, nullptr, 0), VU_MOM_OK);
  EXPECT_EQ(vu_mom_unsubscribe_field(handle, 0, message, 2, tags, nullptr, nullptr, 2),
            VU_MOM_BAD_INPUT);
  EXPECT_EQ(vu_mom_unsubscribe_field(handle, 0, message, 2, nullptr, nullptr, nullptr, 1),
            VU_MOM_BAD_INPUT);
  client.set(at("a", 1, "rx:1 note:'n'"));
  expect_quiet();
  EXPECT_EQ(field(good, callbacks, privdata, 2), VU_MOM_OK);
  client.set(at("a", 1, "rx:1 note:'n'"));
  EXPECT_EQ(labels(client.events()), (Labels{1, 2}));
}

TEST_F(Subscriptions, PublishReachesSubscribersAndStoresNothing) {
  Client other;
  other.subscribe(at("a", 0), 1, 5);
  client.subscribe(at("a", 1), 2, 1);
  client.subscribe(at("a", 2), 2, 2);
  client.subscribe_field(at("a", 1), 2, 3, 3);
  EXPECT_EQ(client.ask(vu_mom_publish, 0, at("a", 1, "rx:9")).integer, 2);
  const Seen seen = event();
  EXPECT_EQ(seen.label, 1);
  EXPECT_EQ(seen.type_code, VU_MOM_TYPE_PUBLISH);
  EXPECT_EQ(seen.text(), at("a", 1, "rx:9").text());
  EXPECT_EQ(labels(other.events()), Labels{5});
  EXPECT_FALSE(client.get(at("a", 1)).has_data);
  client.send(vu_mom_rpush, 0, at("a", 1));
  EXPECT_EQ(client.ask(vu_mom_publish, 0, at("a", 1, "rx:9")).integer, 2);  // of any kind
}

TEST_F(Subscriptions, AChangeCostsWhatItNotifies) {
  // Would take minutes if each change went through all of them.
  for (unsigned i = 0; i < 20000; ++i) client.subscribe(at("a", i), 2, 1);
  for (unsigned i = 0; i < 20000; ++i) client.set(at("b", i));
  expect_quiet();
  client.set(at("a", 17));
  EXPECT_EQ(client.events().size(), 1u);
  for (unsigned i = 0; i < 20000; ++i) {
    vu_mom_unsubscribe(client.handle(), 0, at("a", i), 2, nullptr, nullptr);
  }
  EXPECT_EQ(client.events().size(), 20000u);
}

}  // namespace
}  // namespace vu::store::test
