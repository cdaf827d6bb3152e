// A master and its replica, watched by a Sentinel.
#include <gtest/gtest.h>

#include <fstream>
#include <memory>

#include "client.h"
#include "free_port.h"
#include "listener.h"
#include "redis_server.h"

namespace vu::testing {
namespace {

class SentinelTest : public ::testing::Test {
 protected:
  SentinelTest() {
    const std::string file = directory_.path() + "/sentinel.conf";
    std::ofstream(file) << "sentinel monitor main 127.0.0.1 " << master_.port() << " 1\n"
                        << "sentinel down-after-milliseconds main 500\n"
                        << "sentinel failover-timeout main 2000\n";
    sentinel_ =
        std::make_unique<RedisServer>(std::vector<std::string>{file, "--sentinel"}, free_port());
    for (const std::int64_t end = now_ms() + 20'000; !knows_replica() && now_ms() < end;) {
      sleep_ms(20);
    }
    EXPECT_TRUE(knows_replica());
  }

  bool knows_replica() const {
    const std::string replicas = sentinel_->call({"SENTINEL", "replicas", "main"});
    return replicas.find("master-link-status ok") != std::string::npos;
  }

  std::string url(const std::string& options = "") const {
    // The first of the Sentinels is not there.
    return "redis+sentinel://127.0.0.1:" + std::to_string(nobody_) +
           ",127.0.0.1:" + std::to_string(sentinel_->port()) + "/main" + options;
  }

  Directory directory_;
  const std::uint16_t nobody_ = free_port();
  RedisServer master_{{}, free_port()};
  RedisServer replica_{{"--replicaof", "127.0.0.1 " + std::to_string(master_.port()),
                        "--repl-diskless-sync-delay", "0"},
                       free_port()};
  std::unique_ptr<RedisServer> sentinel_;
};

TEST_F(SentinelTest, FollowsTheMaster) {
  Client client(url());
  Listener listener(url());
  listener.subscribe("a");
  ASSERT_TRUE(listener.settle());
  const int first = client.push("1");
  ASSERT_TRUE(client.finish());
  EXPECT_EQ(client.told(first), "1");
  EXPECT_EQ(master_.call({"LLEN", "list"}), "1");
  EXPECT_EQ(master_.call({"WAIT", "1", "5000"}), "1");

  master_.kill();
  const int second = client.push("2");
  ASSERT_TRUE(client.finish(20'000));
  // It may have been sent before the connection was found to be broken.
  const int third = client.push("3");
  ASSERT_TRUE(client.finish(20'000));
  EXPECT_TRUE(client.told(second) == "2" || client.told(second).starts_with("unknown: "))
      << client.told(second);
  EXPECT_EQ(client.told(third), replica_.call({"LLEN", "list"}));
  ASSERT_TRUE(listener.wait_for("gap"));
  EXPECT_EQ(replica_.call({"PUBLISH", "a", "moved"}), "1");
  ASSERT_TRUE(listener.settle());
  EXPECT_EQ(listener.told(), (std::vector<std::string>{"mark", "gap", "a=moved", "mark"}));
}

TEST_F(SentinelTest, AsksAgainWhereTheMasterIsNoneAnyMore) {
  Client client(url("?command_timeout=1"));
  EXPECT_EQ(client.ask({"FCALL", "test_push", "1", "list", "1"}), "1");
  ASSERT_EQ(sentinel_->call({"SENTINEL", "REMOVE", "main"}), "OK");
  ASSERT_EQ(master_.call({"REPLICAOF", "127.0.0.1", std::to_string(replica_.port())}), "OK");
  const int refused = client.push("2");
  ASSERT_TRUE(client.finish());
  EXPECT_TRUE(client.told(refused).starts_with("not done: ")) << client.told(refused);
  const int unknown = client.push("3");
  ASSERT_TRUE(client.finish());
  EXPECT_EQ(client.told(unknown),
            "not done: no Sentinel names the master 'main': it does not know it");
  ASSERT_EQ(replica_.call({"REPLICAOF", "NO", "ONE"}), "OK");
  ASSERT_EQ(sentinel_->call(
                {"SENTINEL", "MONITOR", "main", "127.0.0.1", std::to_string(replica_.port()), "1"}),
            "OK");
  client.loop().run_until([] { return false; }, 1'300);  // the longest pause
  EXPECT_EQ(client.ask({"FCALL", "test_push", "1", "list", "4"}), "2");
  EXPECT_EQ(replica_.call({"LRANGE", "list", "0", "-1"}), "[1 4]");
}

TEST_F(SentinelTest, LogsInToSentinelsToo) {
  sentinel_->call({"ACL", "SETUSER", "asker", "on", ">secret", "+@all"});
  sentinel_->call({"ACL", "SETUSER", "default", "resetpass", ">other"});
  sentinel_->set_password("other");
  const std::string nobody_knows = "not done: no Sentinel names the master 'main': ";
  struct Login {
    std::string options;
    std::string told;  // how it begins
  };
  const std::vector<Login> logins = {
      {"?sentinel_password=other", "1"},
      {"?sentinel_user=asker&sentinel_password=secret", "2"},
      {"?sentinel_password=secret", nobody_knows + "WRONGPASS"},
      {"", nobody_knows + "NOAUTH"},
  };
  for (const Login& one : logins) {
    Client client(url(one.options));
    const std::string told = client.ask({"FCALL", "test_push", "1", "list", "x"});
    EXPECT_TRUE(told.starts_with(one.told)) << one.options << ": " << told;
  }
}

TEST(NoSentinelTest, SaysThatThereIsNone) {
  const std::string nobody = "127.0.0.1:" + std::to_string(free_port());
  Client client("redis+sentinel://" + nobody + "," + nobody + "/main?command_timeout=0.2");
  EXPECT_EQ(client.ask({"PING"}),
            "not done: no Sentinel names the master 'main': Connection refused");
  const RedisServer server({}, free_port());  // which is no Sentinel
  Client wrong("redis+sentinel://127.0.0.1:" + std::to_string(server.port()) +
               "/main?command_timeout=0.2");
  const std::string told = wrong.ask({"PING"});
  EXPECT_TRUE(
      told.starts_with("not done: no Sentinel names the master 'main': ERR unknown command"))
      << told;
}

}  // namespace
}  // namespace vu::testing
