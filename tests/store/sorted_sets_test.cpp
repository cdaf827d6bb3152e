// Sorted sets.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <map>

#include "random.h"
#include "store_fixture.h"

namespace vu::store::test {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

Live member(unsigned rx) { return port("device:'z' number:1 rx:" + std::to_string(rx)); }

std::string member_text(unsigned rx) {
  return "device: \"z\" number: 1" + (rx == 0 ? "" : " rx: " + std::to_string(rx));
}

class SortedSets : public testing::Test {
 protected:
  using Pairs = std::vector<std::pair<double, std::string>>;

  std::int64_t zadd(const std::vector<std::pair<double, unsigned>>& given) {
    std::vector<Live> messages;
    std::vector<vu_mom_message> addresses;
    std::vector<double> scores;
    for (const auto& [score, rx] : given) {
      messages.push_back(member(rx));
      addresses.push_back(messages.back());
      scores.push_back(score);
    }
    return client
        .ask(vu_mom_zadd, 0, scores.data(), addresses.data(),
             static_cast<std::int32_t>(addresses.size()))
        .integer;
  }
  std::int64_t zrem(const std::vector<unsigned>& given) {
    std::vector<Live> messages;
    auto* const addresses =
        static_cast<vu_mom_message*>(std::malloc(given.size() * sizeof(vu_mom_message)));
    for (std::size_t i = 0; i < given.size(); ++i) {
      messages.push_back(member(given[i]));
      addresses[i] = messages.back();
    }
    return client.ask(vu_mom_zrem, 0, addresses, static_cast<std::int32_t>(given.size())).integer;
  }
  static Pairs pairs(const Seen& seen) {
    EXPECT_EQ(seen.payload, VU_PLATFORM_PAYLOAD_SCORED);
    Pairs all;
    for (std::size_t i = 0; i < seen.texts.size(); ++i) {
      all.emplace_back(seen.scores[i], seen.texts[i]);
    }
    return all;
  }
  Pairs range(std::int32_t start, std::int32_t stop) {
    return pairs(client.ask(vu_mom_zrange, 0, name, start, stop));
  }
  Pairs by_score(double min, double max) {
    return pairs(client.ask(vu_mom_zrangebyscore, 0, name, min, max));
  }
  std::int64_t count(double min, double max) {
    return client.ask(vu_mom_zcount, 0, name, min, max).integer;
  }

  Client client;
  const Live name = port("device:'z' number:1");
};

TEST_F(SortedSets, OrderByScoreThenBytes) {
  EXPECT_EQ(zadd({{3, 1}, {1, 2}, {2, 4}, {2, 3}, {-kInfinity, 5}, {kInfinity, 6}}), 6);
  EXPECT_EQ(range(0, -1), (Pairs{{-kInfinity, member_text(5)},
                                 {1, member_text(2)},
                                 {2, member_text(3)},
                                 {2, member_text(4)},
                                 {3, member_text(1)},
                                 {kInfinity, member_text(6)}}));
  EXPECT_EQ(range(-2, -1), (Pairs{{3, member_text(1)}, {kInfinity, member_text(6)}}));
  EXPECT_EQ(range(4, 2), Pairs{});
  EXPECT_EQ(client.ask(vu_mom_zcard, 0, name).integer, 6);
  EXPECT_EQ(client.ask(vu_mom_zrank, 0, member(4)).integer, 3);
  EXPECT_EQ(client.ask(vu_mom_zrank, 0, member(5)).integer, 0);
  const Seen score = client.ask(vu_mom_zscore, 0, member(1));
  EXPECT_EQ(score.payload, VU_PLATFORM_PAYLOAD_SCORE);
  EXPECT_EQ(score.score, 3);
}

TEST_F(SortedSets, BytesAreThoseOfTheWholeMessage) {
  // Field 1 comes before the key fields, so their absence would change the order.
  Live with("Every", "a:1 b:true f:1 rest:'r'");
  Live without("Every", "a:1 b:true f:1");
  const double scores[] = {1, 1};
  const vu_mom_message addresses[] = {without, with};
  client.send(vu_mom_zadd, 0, scores, addresses, 2);
  EXPECT_EQ(client.ask(vu_mom_zrange, 0, with, 0, -1).texts,
            (std::vector<std::string>{with.text(), without.text()}));
  EXPECT_EQ(client.ask(vu_mom_zrank, 0, without).integer, 1);
}

TEST_F(SortedSets, NothingStoredIsEmpty) {
  EXPECT_EQ(range(0, -1), Pairs{});
  EXPECT_EQ(by_score(-kInfinity, kInfinity), Pairs{});
  EXPECT_EQ(client.ask(vu_mom_zcard, 0, name).integer, 0);
  EXPECT_EQ(count(0, 1), 0);
  EXPECT_FALSE(client.ask(vu_mom_zrank, 0, member(1)).has_data);
  EXPECT_FALSE(client.ask(vu_mom_zscore, 0, member(1)).has_data);
  zadd({{1, 2}});
  EXPECT_FALSE(client.ask(vu_mom_zrank, 0, member(1)).has_data);
  EXPECT_FALSE(client.ask(vu_mom_zscore, 0, member(1)).has_data);
}

TEST_F(SortedSets, BoundsAreInclusive) {
  zadd({{1, 1}, {2, 2}, {3, 3}, {4, 4}});
  EXPECT_EQ(count(2, 3), 2);
  EXPECT_EQ(count(2.5, 2.75), 0);
  EXPECT_EQ(count(3, 2), 0);
  EXPECT_EQ(count(-kInfinity, kInfinity), 4);
  EXPECT_EQ(by_score(2, 3), (Pairs{{2, member_text(2)}, {3, member_text(3)}}));
  EXPECT_EQ(client.ask(vu_mom_zremrangebyscore, 0, name, 1.5, 3.0).integer, 2);
  EXPECT_EQ(range(0, -1), (Pairs{{1, member_text(1)}, {4, member_text(4)}}));
  EXPECT_EQ(client.ask(vu_mom_zremrangebyrank, 0, name, -1, -1).integer, 1);
  EXPECT_EQ(range(0, -1), (Pairs{{1, member_text(1)}}));
  EXPECT_EQ(client.ask(vu_mom_zremrangebyrank, 0, name, 0, 5).integer, 1);
  client.set(member(1));  // an empty sorted set is gone
  EXPECT_TRUE(client.get(name).has_data);
}

TEST_F(SortedSets, TheLastScoreGivenCounts) {
  EXPECT_EQ(zadd({{1, 1}, {9, 1}, {5, 2}, {2, 1}}), 2);
  EXPECT_EQ(range(0, -1), (Pairs{{2, member_text(1)}, {5, member_text(2)}}));
  EXPECT_EQ(zadd({{7, 1}}), 0);
  EXPECT_EQ(range(0, -1), (Pairs{{5, member_text(2)}, {7, member_text(1)}}));
  EXPECT_EQ(zrem({1, 1, 3}), 1);
  EXPECT_EQ(zrem({3}), 0);
  EXPECT_EQ(range(0, -1), (Pairs{{5, member_text(2)}}));
}

TEST_F(SortedSets, BadInputChangesNothing) {
  zadd({{1, 1}});
  vu_mom_handle* const handle = client.handle();
  const Live good = member(2);
  const Live other_name = port("device:'y' number:1");
  const Live other_type("Single", "");
  const double scores[] = {1, 2};
  const double bad_scores[] = {1, std::nan("")};
  const auto zadd_two = [&](const double* given, vu_mom_message second) {
    const vu_mom_message messages[] = {good, second};
    return vu_mom_zadd(handle, 0, given, messages, 2, nullptr, nullptr);
  };
  EXPECT_EQ(zadd_two(bad_scores, member(3)), VU_MOM_BAD_INPUT);
  EXPECT_EQ(zadd_two(scores, other_name), VU_MOM_BAD_INPUT);
  EXPECT_EQ(zadd_two(scores, other_type), VU_MOM_BAD_INPUT);
  EXPECT_EQ(zadd_two(scores, 0), VU_MOM_BAD_INPUT);
  EXPECT_EQ(zadd_two(nullptr, good), VU_MOM_BAD_INPUT);
  EXPECT_EQ(vu_mom_zadd(handle, 0, scores, nullptr, 1, nullptr, nullptr), VU_MOM_BAD_INPUT);
  EXPECT_EQ(vu_mom_zrem(handle, 0, nullptr, 1, nullptr, nullptr), VU_MOM_BAD_INPUT);
  auto* const mixed = static_cast<vu_mom_message*>(std::malloc(2 * sizeof(vu_mom_message)));
  mixed[0] = member(1);  // dead by now
  mixed[1] = other_name;
  EXPECT_EQ(vu_mom_zrem(handle, 0, mixed, 2, nullptr, nullptr), VU_MOM_BAD_INPUT);
  const double nan = std::nan("");
  for (const auto function : {vu_mom_zcount, vu_mom_zrangebyscore, vu_mom_zremrangebyscore}) {
    EXPECT_EQ(function(handle, 0, name, nan, 1, nullptr, nullptr), VU_MOM_BAD_INPUT);
    EXPECT_EQ(function(handle, 0, name, 1, nan, nullptr, nullptr), VU_MOM_BAD_INPUT);
  }
  EXPECT_EQ(range(0, -1), (Pairs{{1, member_text(1)}}));
}

TEST_F(SortedSets, AnswerAsANaiveModelThroughRandomCommands) {
  Random random(7);
  std::map<unsigned, double> model;
  const auto sorted = [&] {
    std::vector<std::pair<double, unsigned>> all;
    for (const auto& [rx, score] : model) all.emplace_back(score, rx);
    // As bytes go: rx is a varint, its low bits first.
    const auto bytes = [](unsigned rx) {
      return rx < 128 ? std::string(1, static_cast<char>(rx))
                      : std::string{static_cast<char>(rx | 0x80), static_cast<char>(rx >> 7)};
    };
    std::sort(all.begin(), all.end(), [&](const auto& one, const auto& other) {
      return one.first != other.first ? one.first < other.first
                                      : bytes(one.second) < bytes(other.second);
    });
    Pairs texts;
    for (const auto& [score, rx] : all) texts.emplace_back(score, member_text(rx));
    return texts;
  };
  for (int i = 0; i < 2500; ++i) {
    switch (random() % 6) {
      case 0:
      case 1:
      case 2: {
        std::vector<std::pair<double, unsigned>> given;
        for (unsigned n = random() % 5; n > 0; --n) {
          given.emplace_back(static_cast<double>(random() % 20) / 2, 1 + random() % 300);
        }
        zadd(given);
        for (const auto& [score, rx] : given) model[rx] = score;
        break;
      }
      case 3: {
        const unsigned rx = 1 + random() % 300;
        EXPECT_EQ(zrem({rx}), static_cast<std::int64_t>(model.erase(rx)));
        break;
      }
      case 4: {
        const auto first = static_cast<std::int32_t>(random() % 300);
        const Pairs before = sorted();
        client.send(vu_mom_zremrangebyrank, 0, name, first, first + 1);
        for (std::size_t at = static_cast<std::size_t>(first);
             at < before.size() && at <= static_cast<std::size_t>(first) + 1; ++at) {
          for (auto one = model.begin(); one != model.end(); ++one) {
            if (member_text(one->first) == before[at].second) {
              model.erase(one);
              break;
            }
          }
        }
        break;
      }
      default: {
        const double min = static_cast<double>(random() % 20) / 2;
        client.send(vu_mom_zremrangebyscore, 0, name, min, min);
        std::erase_if(model, [&](const auto& one) { return one.second == min; });
      }
    }
    if (i % 25 != 0) continue;
    const Pairs expected = sorted();
    ASSERT_EQ(range(0, -1), expected);
    const double min = static_cast<double>(random() % 20) / 2;
    const double max = static_cast<double>(random() % 20) / 2;
    Pairs within;
    for (const auto& pair : expected) {
      if (pair.first >= min && pair.first <= max) within.push_back(pair);
    }
    ASSERT_EQ(by_score(min, max), within);
    ASSERT_EQ(count(min, max), static_cast<std::int64_t>(within.size()));
    for (const auto& [rx, score] : model) {
      const auto at =
          std::find(expected.begin(), expected.end(), std::make_pair(score, member_text(rx)));
      ASSERT_EQ(client.ask(vu_mom_zrank, 0, member(rx)).integer, at - expected.begin());
      break;
    }
  }
}

TEST_F(SortedSets, AMillionMembers) {
  // A million takes an emulated 32-bit processor more than a minute.
  constexpr unsigned kMembers = sizeof(void*) == 8 ? 1000000 : 100000;
  constexpr unsigned kAtOnce = 1000;
  std::vector<Live> messages;
  std::vector<vu_mom_message> addresses;
  for (unsigned i = 0; i < kAtOnce; ++i) {
    messages.push_back(member(0));
    addresses.push_back(messages.back());
  }
  const auto* rx = (*messages[0]).GetDescriptor()->FindFieldByName("rx");
  std::vector<double> scores(kAtOnce);
  // A permutation of 0 to kMembers - 1.
  const auto score_of = [](unsigned i) { return i * 7919ull % kMembers; };
  for (unsigned i = 0; i < kMembers; i += kAtOnce) {
    for (unsigned j = 0; j < kAtOnce; ++j) {
      (*messages[j]).GetReflection()->SetUInt64(&*messages[j], rx, i + j);
      scores[j] = static_cast<double>(score_of(i + j));
    }
    client.send(vu_mom_zadd, 0, scores.data(), addresses.data(), std::int32_t{kAtOnce});
  }
  EXPECT_EQ(client.ask(vu_mom_zcard, 0, name).integer, kMembers);
  for (unsigned i = 0; i < kMembers; i += 9973) {
    const auto rank = static_cast<std::int64_t>(score_of(i));
    ASSERT_EQ(client.ask(vu_mom_zrank, 0, member(i)).integer, rank);
    const auto at = static_cast<std::int32_t>(rank);
    ASSERT_EQ(range(at, at), (Pairs{{static_cast<double>(rank), member_text(i)}}));
    ASSERT_EQ(by_score(static_cast<double>(rank), static_cast<double>(rank)).size(), 1u);
    ASSERT_EQ(count(static_cast<double>(rank), kInfinity), kMembers - rank);
  }
  constexpr auto kLast = std::int32_t{kMembers} - 1001;
  EXPECT_EQ(client.ask(vu_mom_zremrangebyrank, 0, name, 1000, kLast).integer, kMembers - 2000);
  EXPECT_EQ(client.ask(vu_mom_zcard, 0, name).integer, 2000);
  EXPECT_EQ(range(999, 1000)[1].first, kMembers - 1000);
}

TEST_F(SortedSets, OtherKindsAreRefused) {
  client.set(member(1));
  const std::string wrong = "the object is a single value, not a sorted set";
  EXPECT_EQ(client.ask(vu_mom_zcard, 0, name).error, wrong);
  EXPECT_EQ(client.ask(vu_mom_zrank, 0, name).error, wrong);
  EXPECT_EQ(client.ask(vu_mom_zscore, 0, name).error, wrong);
  EXPECT_EQ(client.ask(vu_mom_zcount, 0, name, 0.0, 1.0).error, wrong);
  EXPECT_EQ(client.ask(vu_mom_zrange, 0, name, 0, -1).error, wrong);
  EXPECT_EQ(client.ask(vu_mom_zrangebyscore, 0, name, 0.0, 1.0).error, wrong);
  EXPECT_EQ(client.ask(vu_mom_zremrangebyscore, 0, name, 0.0, 1.0).error, wrong);
  EXPECT_EQ(client.ask(vu_mom_zremrangebyrank, 0, name, 0, -1).error, wrong);
  const double score = 1;
  const vu_mom_message address = name;
  EXPECT_EQ(client.ask(vu_mom_zadd, 0, &score, &address, 1).error, wrong);
  EXPECT_EQ(client.get(name).text(), member_text(1));
}

}  // namespace
}  // namespace vu::store::test
