// What a million objects cost, and what happens where memory ends.
#include <malloc.h>

#include <cmath>
#include <cstdio>

#include "failing_new.h"
#include "store_fixture.h"

namespace vu::store::test {
namespace {

TEST(Memory, OfAMillionSingleValues) {
  // 16 bytes of key, 60 of value beside it.
#ifdef VU_SANITIZED
  GTEST_SKIP() << "the sanitizer's allocator does not say what is used";
#endif
  constexpr int kObjects = 1000000;
  Client client("embedded:memory");
  Live entry("Entry", "");
  const auto* descriptor = (*entry).GetDescriptor();
  const auto* reflection = (*entry).GetReflection();
  const auto* key = descriptor->FindFieldByName("key");
  const auto* value = descriptor->FindFieldByName("value");
  std::int32_t flag = 0;
  malloc_trim(0);
  const std::size_t before = mallinfo2().uordblks + mallinfo2().hblkhd;
  for (int i = 0; i < kObjects; ++i) {
    // In no particular order, as keys come.
    char name[17];
    std::snprintf(name, sizeof(name), "%016llx",
                  static_cast<unsigned long long>(i) * 0x9E3779B97F4A7C15ull);
    std::string content(58, static_cast<char>(i));  // 60 bytes with its tag and its size
    reflection->SetString(&*entry, key, name);
    reflection->SetString(&*entry, value, std::move(content));
    ASSERT_EQ(vu_mom_set_ext(client.handle(), 0, &flag, entry, nullptr, nullptr), VU_MOM_OK);
  }
  const std::size_t after = mallinfo2().uordblks + mallinfo2().hblkhd;
  const double each = static_cast<double>(after - before) / kObjects;
  RecordProperty("bytes_per_object", static_cast<int>(std::lround(each)));
  std::printf("           %.1f bytes per object\n", each);
  EXPECT_LE(each, 120);
  EXPECT_EQ(client.scan_index(entry, 1).size(), 2u);
  EXPECT_EQ(client.ask_all(vu_mom_pdel, 0, entry, 0u).size(), kObjects + 1u);
}

// Runs `command` with memory for 0, 1, 2, ... allocations until it succeeds, and checks
// after each failure that `state` tells the same and nothing is delivered.
template <typename Command, typename State>
void expect_all_or_nothing(Client& client, Command command, State state) {
  const std::string before = state();
  long allowed = 0;
  while (true) {
    limit_allocations(allowed++);
    const std::int32_t status = command();
    unlimit_allocations();
    if (status == VU_MOM_OK) break;
    ASSERT_EQ(status, VU_MOM_NO_MEMORY);
    ASSERT_EQ(client.drain().size(), 0u);
    ASSERT_EQ(state(), before);
    ASSERT_LT(allowed, 10000);
  }
  EXPECT_GT(allowed, 1);
}

class NoMemory : public testing::Test {
 protected:
  NoMemory() { client.advance(0); }
  // Everything stored, as one text.
  std::string all() {
    std::string text;
    Client reader("embedded:no memory");
    for (const Seen& seen : reader.scan(at("", 0), 0)) {
      text += std::to_string(seen.type_code);
      for (const std::string& one : seen.texts) text += " " + one;
      for (const double score : seen.scores) text += " " + std::to_string(score);
      for (const std::size_t tag : seen.tags) text += " " + std::to_string(tag);
      text += "\n";
    }
    return text;
  }
  template <typename Command>
  void check(Command command, std::size_t told = 3) {
    expect_all_or_nothing(client, command, [this] { return all(); });
    // Done once: the reply, the event of the whole, that of the field; and the other's.
    EXPECT_EQ(client.drain().size(), told);
    EXPECT_EQ(watcher.drain().size(), 1u);
  }
  void watch() {
    client.subscribe(at("", 0), 0, 1);
    client.subscribe_field(at("", 0), 0, 3, 2);
    watcher.subscribe(at("", 0), 0, 3);
  }

  Client client{"embedded:no memory"};
  Client watcher{"embedded:no memory"};
  void* const slot = client.slot(9);
};

TEST_F(NoMemory, SingleValues) {
  watch();
  std::int32_t flag = 0;
  const Live one = at("a", 1, "rx:1");
  const Live longer = at("a", 1, "rx:1 note:'" + std::string(500, 'x') + "'");
  const Live huge = at("a", 1, "rx:1 note:'" + std::string(5000, 'x') + "'");
  for (const Live* message : {&one, &longer, &huge, &one}) {
    check([&] {
      return vu_mom_set_ext(client.handle(), 0, &flag, *message, &Client::on_reply, slot);
    });
    EXPECT_EQ(client.get(one).text(), message->text());
  }
  check([&] {
    return vu_mom_setow_ext(client.handle(), 0, &flag, longer, &Client::on_reply, slot, 5);
  });
  check([&] { return vu_mom_incr(client.handle(), 0, one, &Client::on_reply, slot); }, 2);
  const Live other = at("b", 1, "rx:1");
  check([&] { return vu_mom_setnx(client.handle(), 0, other, &Client::on_reply, slot); });
  check([&] { return vu_mom_del(client.handle(), 0, other, &Client::on_reply, slot); });
}

TEST_F(NoMemory, Hashes) {
  watch();
  const Live message = at("a", 1, "rx:1 note:'a note that is no small string' hits:4");
  const std::size_t some[] = {3, 4};
  const std::size_t more[] = {3, 6};
  check(
      [&] { return vu_mom_hmset(client.handle(), 0, message, some, 2, &Client::on_reply, slot); });
  check(
      [&] { return vu_mom_hmset(client.handle(), 0, message, more, 2, &Client::on_reply, slot); });
}

TEST_F(NoMemory, ListsAndSets) {
  watch();
  const std::string note = " note:'a note that is no small string'";
  const Live element = at("l", 1, "rx:1" + note);
  vu_mom_handle* const handle = client.handle();
  const auto check_plain = [&](auto command) {
    expect_all_or_nothing(client, command, [this] { return all(); });
    EXPECT_EQ(client.drain().size(), 2u);
    EXPECT_EQ(watcher.drain().size(), 1u);
  };
  for (int i = 0; i < 40; ++i) {
    check_plain([&] { return vu_mom_rpush(handle, 0, element, &Client::on_reply, slot); });
    check_plain([&] { return vu_mom_lpush(handle, 0, element, &Client::on_reply, slot); });
    const Live member = at("s", 1, "rx:" + std::to_string(i) + note);
    check_plain([&] { return vu_mom_sadd(handle, 0, member, &Client::on_reply, slot); });
  }
  const Live pivot = at("l", 1, "rx:1" + note);
  check_plain(
      [&] { return vu_mom_linsert(handle, 0, pivot, element, 1, &Client::on_reply, slot); });
  check_plain([&] { return vu_mom_lpop(handle, 0, element, &Client::on_reply, slot); });
  check_plain([&] { return vu_mom_lrem(handle, 0, element, 3, &Client::on_reply, slot); });
}

TEST_F(NoMemory, SortedSets) {
  watch();
  std::vector<Live> messages;
  std::vector<vu_mom_message> addresses;
  std::vector<double> scores;
  for (int i = 0; i < 150; ++i) {
    messages.push_back(at("z", 1, "rx:" + std::to_string(i)));
    addresses.push_back(messages.back());
    scores.push_back(i * 7 % 150);
  }
  const auto zadd = [&] {
    return vu_mom_zadd(client.handle(), 0, scores.data(), addresses.data(), 150, &Client::on_reply,
                       slot);
  };
  const auto check_plain = [&](auto command) {
    expect_all_or_nothing(client, command, [this] { return all(); });
    EXPECT_EQ(client.drain().size(), 2u);
    EXPECT_EQ(watcher.drain().size(), 1u);
  };
  check_plain(zadd);
  for (double& score : scores) score = 150 - score;  // all of them move
  check_plain(zadd);
  check_plain([&] {
    return vu_mom_zremrangebyrank(client.handle(), 0, messages[0], 10, 100, &Client::on_reply,
                                  slot);
  });
}

TEST_F(NoMemory, LevelsAndSubscriptions) {
  for (unsigned i = 0; i < 5; ++i) client.set(at("a", i, "rx:1"));
  const auto same = [this] { return all(); };
  vu_mom_handle* const handle = client.handle();
  const Live name = at("a", 0);
  expect_all_or_nothing(
      client, [&] { return vu_mom_subscribe(handle, 0, name, 1, &Client::on_stream, slot); }, same);
  const std::size_t tags[] = {3, 4};
  const vu_mom_stream_cb callbacks[] = {&Client::on_stream, &Client::on_stream};
  void* const privdata[] = {slot, slot};
  expect_all_or_nothing(
      client,
      [&] { return vu_mom_subscribe_field(handle, 0, name, 1, tags, callbacks, privdata, 2); },
      same);
  expect_all_or_nothing(
      client, [&] { return vu_mom_pexpire(handle, 0, name, 1, 10, 0, &Client::on_reply, slot); },
      same);
  EXPECT_EQ(client.drain().size(), 6u);
  expect_all_or_nothing(
      client, [&] { return vu_mom_pdel(handle, 0, name, 1, &Client::on_reply, slot); }, same);
  EXPECT_EQ(client.drain().size(), 6u + 5 + 5);
  expect_all_or_nothing(
      client, [&] { return vu_mom_unsubscribe(handle, 0, name, 1, nullptr, nullptr); }, same);
  EXPECT_EQ(client.drain().size(), 1u);
}

TEST_F(NoMemory, ADeliveryStillCompletesTheRequest) {
  client.set(at("a", 1, "rx:1"));
  struct Outcome {
    bool completed = false;
    std::int32_t status = 0;
    bool has_data = false;
  };
  for (long allowed = 0;; ++allowed) {
    Outcome outcome;
    ASSERT_EQ(vu_mom_get(
                  client.handle(), 0, at("a", 1),
                  [](void*, const vu_mom_reply* reply, void* privdata) {
                    unlimit_allocations();
                    *static_cast<Outcome*>(privdata) = {true, vu_platform_details_of(reply)->status,
                                                        reply->data != nullptr};
                  },
                  &outcome),
              VU_MOM_OK);
    limit_allocations(allowed);
    EXPECT_FALSE(client.deliver(1));
    unlimit_allocations();
    ASSERT_TRUE(outcome.completed);
    ASSERT_EQ(outcome.has_data, outcome.status == VU_MOM_OK);
    if (outcome.status == VU_MOM_OK) break;
    ASSERT_EQ(outcome.status, VU_MOM_NO_MEMORY);
    ASSERT_LT(allowed, 1000);
  }
}

}  // namespace
}  // namespace vu::store::test
