// Lists and sets.
#include <algorithm>

#include "random.h"
#include "store_fixture.h"

namespace vu::store::test {
namespace {

Live item(std::uint64_t rx) { return port("device:'a' number:1 rx:" + std::to_string(rx)); }

std::string item_text(std::uint64_t rx) {
  return "device: \"a\" number: 1" + (rx == 0 ? "" : " rx: " + std::to_string(rx));
}

class Lists : public testing::Test {
 protected:
  using Values = std::vector<std::uint64_t>;

  void fill(const Values& values) {
    for (const auto value : values) client.send(vu_mom_rpush, 0, item(value));
  }
  Values range(std::int32_t start, std::int32_t stop) {
    const Seen seen = client.ask(vu_mom_lrange, 0, name, start, stop);
    EXPECT_EQ(seen.payload, VU_PLATFORM_PAYLOAD_MESSAGES);
    EXPECT_EQ(seen.type_code, VU_MOM_TYPE_LPUSH);
    Values values;
    for (const std::string& text : seen.texts) {
      std::uint64_t value = 0;
      while (item_text(value) != text) ++value;
      values.push_back(value);
    }
    return values;
  }
  Values all() { return range(0, -1); }

  Client client;
  const Live name = port("device:'a' number:1");
};

TEST_F(Lists, PushAndPopAtBothEnds) {
  EXPECT_EQ(client.ask(vu_mom_rpush, 0, item(2)).integer, 1);
  EXPECT_EQ(client.ask(vu_mom_lpush, 0, item(1)).integer, 2);
  EXPECT_EQ(client.ask(vu_mom_rpush, 0, item(3)).integer, 3);
  EXPECT_EQ(all(), (Values{1, 2, 3}));
  EXPECT_EQ(client.ask(vu_mom_llen, 0, name).integer, 3);
  EXPECT_EQ(client.ask(vu_mom_lpop, 0, name).text(), item_text(1));
  EXPECT_EQ(client.ask(vu_mom_rpop, 0, name).text(), item_text(3));
  EXPECT_EQ(client.ask(vu_mom_rpop, 0, name).text(), item_text(2));
  const Seen none = client.ask(vu_mom_lpop, 0, name);
  EXPECT_FALSE(none.has_data);
  EXPECT_EQ(none.status, VU_MOM_OK);
  EXPECT_EQ(client.ask(vu_mom_llen, 0, name).integer, 0);
  client.set(item(9));  // an empty list is gone
  EXPECT_TRUE(client.get(name).has_data);
}

TEST_F(Lists, RangesCountFromBothEnds) {
  EXPECT_EQ(all(), Values{});
  fill({10, 11, 12, 13, 14});
  EXPECT_EQ(range(1, 3), (Values{11, 12, 13}));
  EXPECT_EQ(range(-2, -1), (Values{13, 14}));
  EXPECT_EQ(range(-100, 1), (Values{10, 11}));
  EXPECT_EQ(range(3, 100), (Values{13, 14}));
  EXPECT_EQ(range(3, 2), Values{});
  EXPECT_EQ(range(5, 5), Values{});
  EXPECT_EQ(range(0, -6), Values{});
  EXPECT_EQ(range(INT32_MIN, INT32_MAX), (Values{10, 11, 12, 13, 14}));
  EXPECT_EQ(range(INT32_MAX, INT32_MIN), Values{});
}

TEST_F(Lists, LsetReplacesOneElement) {
  EXPECT_EQ(client.ask(vu_mom_lset, 0, item(5), 0).integer, 0);
  fill({1, 2, 3});
  EXPECT_EQ(client.ask(vu_mom_lset, 0, item(20), 1).integer, 1);
  EXPECT_EQ(client.ask(vu_mom_lset, 0, item(30), -1).integer, 1);
  EXPECT_EQ(client.ask(vu_mom_lset, 0, item(40), 3).integer, 0);
  EXPECT_EQ(client.ask(vu_mom_lset, 0, item(40), -4).integer, 0);
  EXPECT_EQ(client.ask(vu_mom_lset, 0, item(40), INT32_MIN).integer, 0);
  EXPECT_EQ(all(), (Values{1, 20, 30}));
}

TEST_F(Lists, LremRemovesTheFirstOrAll) {
  fill({1, 2, 1, 3, 1});
  EXPECT_EQ(client.ask(vu_mom_lrem, 0, item(1), std::size_t{2}).integer, 2);
  EXPECT_EQ(all(), (Values{2, 3, 1}));
  EXPECT_EQ(client.ask(vu_mom_lrem, 0, item(7), std::size_t{0}).integer, 0);
  fill({2, 2});
  EXPECT_EQ(client.ask(vu_mom_lrem, 0, item(2), std::size_t{0}).integer, 3);
  EXPECT_EQ(all(), (Values{3, 1}));
  EXPECT_EQ(client.ask(vu_mom_lrem, 0, item(3), static_cast<std::size_t>(-1)).integer, 1);
  EXPECT_EQ(client.ask(vu_mom_lrem, 0, item(1), std::size_t{1}).integer, 1);
  EXPECT_EQ(all(), Values{});
}

TEST_F(Lists, LinsertGoesBeforeOrAfterThePivot) {
  EXPECT_EQ(client.ask(vu_mom_linsert, 0, item(1), item(2), 0).integer, 0);
  fill({1, 2, 1});
  EXPECT_EQ(client.ask(vu_mom_linsert, 0, item(1), item(8), 0).integer, 4);
  EXPECT_EQ(client.ask(vu_mom_linsert, 0, item(1), item(9), 1).integer, 5);
  EXPECT_EQ(client.ask(vu_mom_linsert, 0, item(7), item(9), 1).integer, -1);
  EXPECT_EQ(all(), (Values{8, 1, 9, 2, 1}));
  vu_mom_handle* const handle = client.handle();
  EXPECT_EQ(vu_mom_linsert(handle, 0, item(1), item(2), 2, nullptr, nullptr), VU_MOM_BAD_INPUT);
  EXPECT_EQ(vu_mom_linsert(handle, 0, item(1), item(2), -1, nullptr, nullptr), VU_MOM_BAD_INPUT);
  EXPECT_EQ(vu_mom_linsert(handle, 0, port("device:'b' number:1"), item(2), 0, nullptr, nullptr),
            VU_MOM_BAD_INPUT);
  EXPECT_EQ(vu_mom_linsert(handle, 0, Live("Single", ""), item(2), 0, nullptr, nullptr),
            VU_MOM_BAD_INPUT);
  EXPECT_EQ(vu_mom_linsert(handle, 0, 0, item(2), 0, nullptr, nullptr), VU_MOM_BAD_INPUT);
  EXPECT_EQ(all(), (Values{8, 1, 9, 2, 1}));
}

TEST_F(Lists, BehavesAsAVectorThroughRandomCommands) {
  Random random(5);
  Values model;
  for (int i = 0; i < 3000; ++i) {
    const std::uint64_t value = random() % 8;
    switch (random() % 8) {
      case 0:
      case 1:
        client.send(vu_mom_lpush, 0, item(value));
        model.insert(model.begin(), value);
        break;
      case 2:
      case 3:
        client.send(vu_mom_rpush, 0, item(value));
        model.push_back(value);
        break;
      case 4:
        client.send(vu_mom_lpop, 0, name);
        if (!model.empty()) model.erase(model.begin());
        break;
      case 5: {
        const auto position = static_cast<std::int32_t>(random() % 20) - 10;
        client.send(vu_mom_lset, 0, item(value), position);
        const auto size = static_cast<std::int32_t>(model.size());
        const std::int32_t at = position < 0 ? position + size : position;
        if (at >= 0 && at < size) model[static_cast<std::size_t>(at)] = value;
        break;
      }
      case 6: {
        const std::size_t count = random() % 3;
        client.send(vu_mom_lrem, 0, item(value), count);
        std::size_t removed = 0;
        for (auto at = model.begin(); at != model.end();) {
          if (*at == value && (count == 0 || removed < count)) {
            at = model.erase(at);
            ++removed;
          } else {
            ++at;
          }
        }
        break;
      }
      default: {
        const std::uint64_t pivot = random() % 8;
        const int order = static_cast<int>(random() % 2);
        client.send(vu_mom_linsert, 0, item(pivot), item(value), order);
        const auto at = std::find(model.begin(), model.end(), pivot);
        if (at != model.end()) model.insert(at + order, value);
      }
    }
    if (i % 50 == 0) {
      ASSERT_EQ(all(), model);
    }
  }
}

TEST_F(Lists, OtherKindsAreRefused) {
  client.send(vu_mom_sadd, 0, item(1));
  const std::string wrong = "the object is a set, not a list";
  EXPECT_EQ(client.ask(vu_mom_lpush, 0, item(1)).error, wrong);
  EXPECT_EQ(client.ask(vu_mom_rpush, 0, item(1)).error, wrong);
  EXPECT_EQ(client.ask(vu_mom_lpop, 0, item(1)).error, wrong);
  EXPECT_EQ(client.ask(vu_mom_rpop, 0, item(1)).error, wrong);
  EXPECT_EQ(client.ask(vu_mom_llen, 0, item(1)).error, wrong);
  EXPECT_EQ(client.ask(vu_mom_lset, 0, item(1), 0).error, wrong);
  EXPECT_EQ(client.ask(vu_mom_lrem, 0, item(1), std::size_t{0}).error, wrong);
  EXPECT_EQ(client.ask(vu_mom_linsert, 0, item(1), item(2), 0).error, wrong);
  EXPECT_EQ(client.ask(vu_mom_lrange, 0, item(1), 0, -1).error, wrong);
  client.send(vu_mom_lpush, 0, item(2));  // silently without effect
  EXPECT_EQ(client.ask(vu_mom_scard, 0, name).integer, 1);
}

class Sets : public Lists {
 protected:
  std::vector<std::string> members() {
    Seen seen = client.ask(vu_mom_smembers, 0, name);
    EXPECT_EQ(seen.payload, VU_PLATFORM_PAYLOAD_MESSAGES);
    std::sort(seen.texts.begin(), seen.texts.end());
    return seen.texts;
  }
};

TEST_F(Sets, HoldEachMemberOnce) {
  EXPECT_EQ(members(), std::vector<std::string>{});
  EXPECT_EQ(client.ask(vu_mom_sadd, 0, item(1)).integer, 1);
  EXPECT_EQ(client.ask(vu_mom_sadd, 0, item(2)).integer, 1);
  EXPECT_EQ(client.ask(vu_mom_sadd, 0, item(1)).integer, 0);
  EXPECT_EQ(members(), (std::vector<std::string>{item_text(1), item_text(2)}));
  EXPECT_EQ(client.ask(vu_mom_scard, 0, name).integer, 2);
  EXPECT_EQ(client.ask(vu_mom_sismember, 0, item(1)).integer, 1);
  EXPECT_EQ(client.ask(vu_mom_sismember, 0, item(3)).integer, 0);
  EXPECT_EQ(client.ask(vu_mom_srem, 0, item(1)).integer, 1);
  EXPECT_EQ(client.ask(vu_mom_srem, 0, item(1)).integer, 0);
  EXPECT_EQ(client.ask(vu_mom_srem, 0, item(2)).integer, 1);
  EXPECT_EQ(client.ask(vu_mom_scard, 0, name).integer, 0);
  EXPECT_EQ(client.ask(vu_mom_sismember, 0, item(1)).integer, 0);
  client.set(item(9));
  EXPECT_TRUE(client.get(name).has_data);
}

TEST_F(Sets, MapsInAnyOrderAreEqual) {
  Live one = port("device:'a' number:1 limits{key:'x' value:1} limits{key:'y' value:2}");
  Live other = port("device:'a' number:1 limits{key:'y' value:2} limits{key:'x' value:1}");
  client.send(vu_mom_sadd, 0, one);
  EXPECT_EQ(client.ask(vu_mom_sadd, 0, other).integer, 0);
}

TEST_F(Sets, HoldManyMembers) {
  for (std::uint64_t i = 0; i < 5000; ++i) client.send(vu_mom_sadd, 0, item(i));
  for (std::uint64_t i = 0; i < 5000; i += 2) client.send(vu_mom_srem, 0, item(i));
  EXPECT_EQ(client.ask(vu_mom_scard, 0, name).integer, 2500);
  EXPECT_EQ(client.ask(vu_mom_sismember, 0, item(4998)).integer, 0);
  EXPECT_EQ(client.ask(vu_mom_sismember, 0, item(4999)).integer, 1);
  EXPECT_EQ(members().size(), 2500u);
}

TEST_F(Sets, OtherKindsAreRefused) {
  client.send(vu_mom_rpush, 0, item(1));
  const std::string wrong = "the object is a list, not a set";
  EXPECT_EQ(client.ask(vu_mom_sadd, 0, item(1)).error, wrong);
  EXPECT_EQ(client.ask(vu_mom_srem, 0, item(1)).error, wrong);
  EXPECT_EQ(client.ask(vu_mom_smembers, 0, item(1)).error, wrong);
  EXPECT_EQ(client.ask(vu_mom_scard, 0, item(1)).error, wrong);
  EXPECT_EQ(client.ask(vu_mom_sismember, 0, item(1)).error, wrong);
  EXPECT_EQ(client.ask(vu_mom_get, 0, item(1)).error, "the object is a list, not a single value");
  EXPECT_EQ(client.ask(vu_mom_incr, 0, item(1)).status, VU_MOM_FAILED);
  EXPECT_EQ(client.ask(vu_mom_setnx, 0, item(1)).status, VU_MOM_FAILED);
  EXPECT_EQ(client.ask(vu_mom_llen, 0, name).integer, 1);
}

}  // namespace
}  // namespace vu::store::test
