// Messages from a server, and what is told when the connection breaks.
#include <gtest/gtest.h>

#include "listener.h"
#include "proxy.h"
#include "redis_server.h"

namespace vu::testing {
namespace {

class EventStreamTest : public ::testing::Test {
 protected:
  RedisServer server_;
};

TEST_F(EventStreamTest, TellsMessagesInOrder) {
  Listener listener(server_.url());
  listener.subscribe("a");
  listener.subscribe("b");
  ASSERT_TRUE(listener.settle());
  server_.call({"PUBLISH", "a", "1"});
  server_.call({"PUBLISH", "b", "2"});
  server_.call({"PUBLISH", "c", "3"});
  server_.call({"PUBLISH", "a", std::string("\0\r\n4", 4)});
  ASSERT_TRUE(listener.settle());
  EXPECT_EQ(listener.told(),
            (std::vector<std::string>{"mark", "a=1", "b=2", std::string("a=\0\r\n4", 6), "mark"}));
}

TEST_F(EventStreamTest, EndsWithTheMark) {
  Listener listener(server_.url());
  listener.subscribe("a");
  ASSERT_TRUE(listener.settle());
  listener.unsubscribe("a");
  ASSERT_TRUE(listener.settle());
  EXPECT_EQ(server_.call({"PUBLISH", "a", "1"}), "0");
  listener.subscribe("a");
  listener.subscribe("a");
  ASSERT_TRUE(listener.settle());
  EXPECT_EQ(server_.call({"PUBLISH", "a", "2"}), "1");
  ASSERT_TRUE(listener.settle());
  EXPECT_EQ(listener.told(), (std::vector<std::string>{"mark", "mark", "mark", "a=2", "mark"}));
}

TEST_F(EventStreamTest, ComesBackByItself) {
  Listener listener(server_.url());
  listener.subscribe("a");
  ASSERT_TRUE(listener.settle());
  for (int round = 0; round < 3; ++round) {
    server_.call({"CLIENT", "KILL", "TYPE", "pubsub"});
    ASSERT_TRUE(listener.wait_for("gap"));
    EXPECT_EQ(server_.call({"PUBLISH", "a", "again"}), "1");
    ASSERT_TRUE(listener.settle());
  }
  EXPECT_EQ(listener.told(),
            (std::vector<std::string>{"mark", "gap", "a=again", "mark", "gap", "a=again", "mark",
                                      "gap", "a=again", "mark"}));
}

TEST_F(EventStreamTest, ComesBackAfterARestart) {
  Listener listener(server_.url());
  listener.subscribe("a");
  ASSERT_TRUE(listener.settle());
  server_.kill();
  listener.mark();  // lost with the connection, and told behind the gap
  listener.flush();
  listener.turn_ms(100);
  server_.start();
  ASSERT_TRUE(listener.wait_for("gap"));
  ASSERT_TRUE(listener.settle());
  EXPECT_EQ(server_.call({"PUBLISH", "a", "1"}), "1");
  ASSERT_TRUE(listener.settle());
  EXPECT_EQ(listener.told(),
            (std::vector<std::string>{"mark", "gap", "mark", "mark", "a=1", "mark"}));
}

TEST_F(EventStreamTest, LetsNobodyWaitForAServerThatIsNotThere) {
  server_.kill();
  Listener listener(server_.url("?command_timeout=0.3"));
  listener.subscribe("a");
  const std::int64_t begin = now_ms();
  ASSERT_TRUE(listener.settle());
  EXPECT_GE(now_ms() - begin, 300);
  EXPECT_LT(now_ms() - begin, 8000);
  server_.start();
  ASSERT_TRUE(listener.wait_for("gap"));
  EXPECT_EQ(server_.call({"PUBLISH", "a", "1"}), "1");
  ASSERT_TRUE(listener.settle());
  EXPECT_EQ(listener.told(), (std::vector<std::string>{"mark", "gap", "a=1", "mark"}));
}

TEST_F(EventStreamTest, LetsNobodyWaitWhereItMayNotListen) {
  server_.call({"CONFIG", "SET", "requirepass", "right"});
  server_.set_password("right");
  Listener listener(server_.url("?password=wrong"));
  listener.subscribe("a");
  ASSERT_TRUE(listener.settle());
  EXPECT_EQ(listener.told(), (std::vector<std::string>{"mark"}));

  server_.call({"ACL", "SETUSER", "deaf", "on", ">secret", "~*", "+@all", "resetchannels"});
  Listener deaf(server_.url("?user=deaf&password=secret"));
  deaf.subscribe("a");
  ASSERT_TRUE(deaf.settle());
  EXPECT_EQ(deaf.told(), (std::vector<std::string>{"mark"}));
}

TEST_F(EventStreamTest, NoticesASilentServer) {
  Proxy proxy(server_.socket());
  Listener listener(proxy.url("?command_timeout=0.3&connect_timeout=0.3"));
  listener.subscribe("a");
  ASSERT_TRUE(listener.settle());
  proxy.harm(Proxy::Harm::kBlackHole);
  listener.turn_ms(1000);
  proxy.harm(Proxy::Harm::kNone);
  ASSERT_TRUE(listener.wait_for("gap"));
  ASSERT_TRUE(listener.settle());
  server_.call({"PUBLISH", "a", "1"});
  ASSERT_TRUE(listener.settle());
  EXPECT_EQ(listener.told(), (std::vector<std::string>{"mark", "gap", "mark", "a=1", "mark"}));
}

TEST_F(EventStreamTest, StaysWithAServerThatHasNothingToSay) {
  Proxy proxy(server_.socket());
  Listener listener(proxy.url("?command_timeout=0.1"));
  listener.subscribe("a");
  ASSERT_TRUE(listener.settle());
  listener.turn_ms(1000);
  ASSERT_TRUE(listener.settle());
  EXPECT_EQ(listener.told(), (std::vector<std::string>{"mark", "mark"}));
  EXPECT_EQ(proxy.connections(), 1U);
}

TEST_F(EventStreamTest, LivesWithBrokenReplies) {
  for (const auto harm : {Proxy::Harm::kCorrupt, Proxy::Harm::kReset, Proxy::Harm::kTrickle}) {
    Proxy proxy(server_.socket());
    const bool is_slow = harm == Proxy::Harm::kTrickle;
    // Corrupt bytes may be a line that never ends.
    Listener listener(proxy.url(is_slow ? "" : "?command_timeout=0.5"));
    listener.subscribe("a");
    ASSERT_TRUE(listener.settle());
    proxy.harm(harm, 20);
    server_.call({"PUBLISH", "a", std::string(50, 'x')});
    ASSERT_TRUE(listener.turn_until([&] { return is_slow || proxy.connections() > 1; }));
    if (!is_slow) proxy.harm(Proxy::Harm::kNone);
    ASSERT_TRUE(listener.settle());
    const std::string event = is_slow ? "a=" + std::string(50, 'x') : "gap";
    EXPECT_EQ(listener.told(), (std::vector<std::string>{"mark", event, "mark"}));
  }
}

TEST_F(EventStreamTest, IsToldWhereItWasTooSlow) {
  server_.call({"CONFIG", "SET", "client-output-buffer-limit", "pubsub 1mb 1mb 0"});
  Listener listener(server_.url());
  listener.subscribe("a");
  ASSERT_TRUE(listener.settle());
  listener.pause(true);
  const std::string large(500'000, 'x');
  for (int i = 0; i < 20; ++i) server_.call({"PUBLISH", "a", large});
  EXPECT_EQ(server_.call({"PUBLISH", "a", "lost"}), "0");
  listener.pause(false);
  ASSERT_TRUE(listener.wait_for("gap"));
  EXPECT_EQ(server_.call({"PUBLISH", "a", "heard"}), "1");
  ASSERT_TRUE(listener.settle());
  EXPECT_EQ(listener.told().back(), "mark");
  EXPECT_EQ(listener.told()[listener.told().size() - 2], "a=heard");
  EXPECT_EQ(listener.count("gap"), 1U);
  EXPECT_EQ(listener.count("a=lost"), 0U);
}

TEST_F(EventStreamTest, WaitsWhilePaused) {
  Listener listener(server_.url("?command_timeout=0.1"));
  listener.subscribe("a");
  ASSERT_TRUE(listener.settle());
  listener.pause(true);
  server_.call({"PUBLISH", "a", "1"});
  listener.turn_ms(500);
  EXPECT_EQ(listener.told(), (std::vector<std::string>{"mark"}));
  listener.pause(false);
  ASSERT_TRUE(listener.settle());
  EXPECT_EQ(listener.told(), (std::vector<std::string>{"mark", "a=1", "mark"}));
}

}  // namespace
}  // namespace vu::testing
