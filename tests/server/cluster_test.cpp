// Three masters, one of them with a replica.
#include <gtest/gtest.h>

#include <memory>

#include "client.h"
#include "cluster_slots.h"
#include "free_port.h"
#include "listener.h"
#include "redis_server.h"
#include "router.h"

namespace vu::testing {
namespace {

std::string key_of(unsigned partition) { return "{" + std::to_string(partition) + "}list"; }

class ClusterTest : public ::testing::Test {
 protected:
  static constexpr int kMasters = 3;

  ClusterTest() {
    for (int i = 0; i <= kMasters; ++i) {
      members_.push_back(std::make_unique<RedisServer>(
          std::vector<std::string>{"--cluster-enabled", "yes", "--cluster-node-timeout", "1000",
                                   "--cluster-replica-validity-factor", "0",
                                   "--repl-diskless-sync-delay", "0"},
          free_port()));
    }
    const std::vector<std::vector<std::string>> ranges = {
        {"0", "5460"}, {"5461", "10922"}, {"10923", "16383"}};
    for (int i = 0; i < kMasters; ++i) {
      EXPECT_EQ(member(i).call({"CLUSTER", "ADDSLOTSRANGE", ranges[at(i)][0], ranges[at(i)][1]}),
                "OK");
    }
    for (int i = 1; i <= kMasters; ++i) {
      EXPECT_EQ(member(i).call({"CLUSTER", "MEET", "127.0.0.1", std::to_string(member(0).port())}),
                "OK");
    }
    wait_for([&] { return member(kMasters).call({"CLUSTER", "REPLICATE", id_of(0)}) == "OK"; });
    wait_for([&] {
      for (const auto& each : members_) {
        const std::string info = each->call({"CLUSTER", "INFO"});
        if (info.find("cluster_state:ok") == std::string::npos) return false;
        if (info.find("cluster_known_nodes:4") == std::string::npos) return false;
      }
      return member(0).call({"INFO", "replication"}).find("state=online") != std::string::npos;
    });
  }

  template <typename Predicate>
  static void wait_for(Predicate is_there) {
    const std::int64_t end = now_ms() + 30'000;
    while (!is_there() && now_ms() < end) sleep_ms(20);
    EXPECT_TRUE(is_there());
  }

  static std::size_t at(int i) { return static_cast<std::size_t>(i); }
  RedisServer& member(int i) { return *members_[at(i)]; }
  std::string id_of(int i) { return member(i).call({"CLUSTER", "MYID"}); }
  std::string url(int i, const std::string& options = "") {
    return "redis+cluster://127.0.0.1:" + std::to_string(member(i).port()) + options;
  }
  // One push for each partition.
  static std::vector<int> push_all(Client& client, const std::string& value) {
    std::vector<int> numbers;
    for (unsigned i = 0; i < store::kPartitions; ++i) {
      numbers.push_back(client.send({"FCALL", "test_push", "1", key_of(i), value}, false, i));
    }
    return numbers;
  }
  static void expect_all(const Client& client, const std::vector<int>& numbers,
                         const std::string& told) {
    for (const int number : numbers) EXPECT_EQ(client.told(number), told) << number;
  }

  std::vector<std::unique_ptr<RedisServer>> members_;
};

TEST(ClusterSlotsTest, AreThoseOfTheServer) {
  const RedisServer server({"--cluster-enabled", "yes"}, free_port());
  for (unsigned i = 0; i < store::kPartitions; ++i) {
    EXPECT_EQ(std::to_string(store::slot_of_partition(i)),
              server.call({"CLUSTER", "KEYSLOT", key_of(i)}));
  }
  Client client("redis+cluster://127.0.0.1:" + std::to_string(server.port()) +
                "?command_timeout=0.3");
  EXPECT_TRUE(client.router().is_spread());
  const std::string told = client.ask({"PING"});
  EXPECT_NE(told.find("who has which slots: some are with nobody"), std::string::npos) << told;
}

TEST_F(ClusterTest, FindsEveryPartition) {
  Client client("redis+cluster://127.0.0.1:" + std::to_string(free_port()) + ",127.0.0.1:" +
                std::to_string(member(kMasters).port()));  // nobody, and the replica
  for (int round = 1; round <= 3; ++round) {
    const std::vector<int> numbers = push_all(client, "a");
    ASSERT_TRUE(client.finish());
    expect_all(client, numbers, std::to_string(round));
  }
  for (int i = 0; i < kMasters; ++i) EXPECT_NE(member(i).call({"DBSIZE"}), "0");
}

TEST_F(ClusterTest, FollowsASlotThatMoves) {
  Client client(url(0));
  expect_all(client, push_all(client, "a"), "nothing was told");
  ASSERT_TRUE(client.finish());
  const unsigned partition = 7;
  const std::string slot = std::to_string(store::slot_of_partition(partition));
  const std::string key = key_of(partition);
  int from = 0;
  while (member(from).call({"EXISTS", key}).starts_with("MOVED")) ++from;
  const int to = (from + 1) % kMasters;
  ASSERT_EQ(member(to).call({"CLUSTER", "SETSLOT", slot, "IMPORTING", id_of(from)}), "OK");
  ASSERT_EQ(member(from).call({"CLUSTER", "SETSLOT", slot, "MIGRATING", id_of(to)}), "OK");
  const auto push = [&](const std::string& value) {
    return client.send({"FCALL", "test_push", "1", key, value}, false, partition);
  };
  // Still there; on the way; arrived.
  std::vector<int> numbers = {push("b")};
  ASSERT_TRUE(client.finish());
  EXPECT_EQ(client.told(numbers[0]), "2");
  ASSERT_EQ(member(from).call(
                {"MIGRATE", "127.0.0.1", std::to_string(member(to).port()), key, "0", "5000"}),
            "OK");
  numbers = {push("c"), client.send({"LLEN", key}, true, partition), push("d")};
  const std::vector<int> others = push_all(client, "x");
  ASSERT_TRUE(client.finish());
  EXPECT_EQ(client.told(numbers[0]), "3");
  EXPECT_EQ(client.told(numbers[1]), "3");
  EXPECT_EQ(client.told(numbers[2]), "4");
  for (unsigned i = 0; i < store::kPartitions; ++i) {
    EXPECT_EQ(client.told(others[i]), i == partition ? "5" : "2");
  }
  for (const int i : {to, from}) {
    ASSERT_EQ(member(i).call({"CLUSTER", "SETSLOT", slot, "NODE", id_of(to)}), "OK");
  }
  numbers.clear();
  for (int i = 0; i < 100; ++i) numbers.push_back(push("e"));
  ASSERT_TRUE(client.finish());
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    EXPECT_EQ(client.told(numbers[i]), std::to_string(6 + i));
  }
}

TEST_F(ClusterTest, FollowsAFailover) {
  Client client(url(1, "?command_timeout=20"));
  push_all(client, "a");
  ASSERT_TRUE(client.finish());
  member(0).call({"WAIT", "1", "5000"});
  member(0).kill();
  std::vector<int> numbers = push_all(client, "b");
  ASSERT_TRUE(client.finish(30'000));
  for (const int number : numbers) {
    const std::string told = client.told(number);
    EXPECT_TRUE(told == "2" || told.starts_with("unknown: ")) << told;
  }
  numbers = push_all(client, "c");
  ASSERT_TRUE(client.finish(30'000));
  for (const int number : numbers) {
    const std::string told = client.told(number);
    EXPECT_TRUE(told == "3" || told == "2") << told;  // an unknown one was not done
  }
  EXPECT_NE(member(kMasters).call({"ROLE"}).find("master"), std::string::npos);
}

TEST_F(ClusterTest, LoadsItsFunctionsOnEachMember) {
  Client client(url(0));
  push_all(client, "a");
  ASSERT_TRUE(client.finish());
  for (int i = 0; i < kMasters; ++i) member(i).call({"FUNCTION", "FLUSH"});
  std::vector<int> numbers = push_all(client, "b");
  const std::vector<int> more = push_all(client, "c");
  ASSERT_TRUE(client.finish());
  expect_all(client, numbers, "2");
  expect_all(client, more, "3");
}

TEST_F(ClusterTest, TellsWhatAnyMemberPublishesBeforeTheMark) {
  Listener listener(url(0));
  listener.subscribe("a");
  ASSERT_TRUE(listener.settle());
  for (int round = 0; round < 20; ++round) {
    const std::size_t before = listener.told().size();
    for (int i = 0; i < kMasters; ++i) member(i).call({"PUBLISH", "a", std::to_string(i)});
    ASSERT_TRUE(listener.settle());
    ASSERT_EQ(listener.told().size(), before + kMasters + 1);
    EXPECT_EQ(listener.told().back(), "mark");
  }
  for (int i = 0; i < kMasters; ++i) EXPECT_EQ(listener.count("a=" + std::to_string(i)), 20U);
  listener.unsubscribe("a");
  ASSERT_TRUE(listener.settle());
  EXPECT_EQ(listener.count("gap"), 0U);

  listener.subscribe("a");
  ASSERT_TRUE(listener.settle());
  for (int i = 0; i < kMasters; ++i) member(i).call({"CLIENT", "KILL", "TYPE", "pubsub"});
  ASSERT_TRUE(listener.wait_for("gap"));
  member(1).call({"PUBLISH", "a", "again"});
  ASSERT_TRUE(listener.settle());
  EXPECT_EQ(listener.count("a=again"), 1U);
}

TEST_F(ClusterTest, SaysThatASlotIsDown) {
  Client client(url(1, "?command_timeout=3"));
  push_all(client, "a");
  ASSERT_TRUE(client.finish());
  member(kMasters).kill();
  member(0).kill();
  sleep_ms(2'500);
  const std::vector<int> numbers = push_all(client, "b");
  ASSERT_TRUE(client.finish(10'000));
  std::size_t down = 0;
  for (const int number : numbers) {
    const std::string told = client.told(number);
    EXPECT_TRUE(told.starts_with("not done: ") || told.starts_with("unknown: ")) << told;
    down += told.starts_with("not done: CLUSTERDOWN ");
  }
  EXPECT_GE(down, 1U);
}

}  // namespace
}  // namespace vu::testing
