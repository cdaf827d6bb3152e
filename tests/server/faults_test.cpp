// What goes wrong with a server or on the way to it. Whatever happens, each command is told
// exactly once (the clients see to that), with its result, as not done or as unknown; none
// is carried out twice, and nothing waits longer than it may.
#include <gtest/gtest.h>

#include "client.h"
#include "free_port.h"
#include "proxy.h"
#include "redis_server.h"

namespace vu::testing {
namespace {

constexpr unsigned kNoLonger = 8'000;  // what has a time-out of a fraction of a second

// How often each value is in the list, which each push adds to.
class Pushes {
 public:
  explicit Pushes(Client& client) : client_(client) {}

  void add(int count) {
    for (int i = 0; i < count; ++i) {
      const std::string value = "v" + std::to_string(pushed_.size());
      pushed_.emplace_back(client_.push(value), value);
    }
  }

  // A result: once in the list; not done: not there; unknown: there once, or not.
  void check(const RedisServer& server, bool has_lost_data = false) const {
    for (const auto& [number, value] : pushed_) {
      const std::string told = client_.told(number);
      const std::string places = server.call({"LPOS", "list", value, "COUNT", "0"});
      const bool is_there_once = places != "[]" && places.find(' ') == std::string::npos;
      if (told.starts_with("not done: ")) {
        EXPECT_EQ(places, "[]") << value << " " << told;
      } else if (told.starts_with("unknown: ")) {
        EXPECT_TRUE(is_there_once || places == "[]") << value << " " << places;
      } else {
        EXPECT_TRUE(is_there_once || has_lost_data) << value << " " << told << " " << places;
        EXPECT_EQ(told.find_first_not_of("0123456789"), std::string::npos) << told;
      }
    }
  }

  std::size_t count(const std::string& start) const {
    std::size_t found = 0;
    for (const auto& [number, value] : pushed_) found += client_.told(number).starts_with(start);
    return found;
  }

 private:
  Client& client_;
  std::vector<std::pair<int, std::string>> pushed_;
};

class FaultsTest : public ::testing::Test {
 protected:
  RedisServer server_;
};

TEST_F(FaultsTest, KilledAndRestartedWithoutItsData) {
  Client client(server_.url());
  Pushes pushes(client);
  pushes.add(10);
  ASSERT_TRUE(client.finish());
  server_.kill();
  pushes.add(10);
  client.size();
  client.router().flush();
  client.loop().run_until([] { return false; }, 50);
  pushes.add(10);
  client.router().flush();
  server_.start();
  ASSERT_TRUE(client.finish());
  pushes.check(server_, true);
  EXPECT_EQ(client.told(1), "1");
  EXPECT_EQ(client.told(client.order().back()), server_.call({"LLEN", "list"}));
  EXPECT_EQ(pushes.count("not done: "), 0U);
}

TEST_F(FaultsTest, KilledAndRestartedWithItsData) {
  Client client(server_.url());
  Pushes pushes(client);
  pushes.add(1000);
  ASSERT_TRUE(client.finish());
  server_.shutdown_save();
  pushes.add(1000);
  const int size = client.size();
  client.router().flush();
  server_.start();
  ASSERT_TRUE(client.finish());
  pushes.check(server_);
  EXPECT_EQ(client.told(size), server_.call({"LLEN", "list"}));
}

TEST_F(FaultsTest, KilledInTheMiddle) {
  Client client(server_.url());
  Pushes pushes(client);
  EXPECT_EQ(client.ask({"PING"}), "PONG");
  server_.pause();
  pushes.add(100);
  client.router().flush();
  const int after = client.size();
  client.router().flush();
  server_.kill();
  server_.start();
  ASSERT_TRUE(client.finish());
  EXPECT_EQ(pushes.count("unknown: lost "), 100U) << client.told(2);
  EXPECT_EQ(client.told(after), "0");  // a read, asked for again
  pushes.check(server_);
}

TEST_F(FaultsTest, ReadsInFrontOfAnUnknownWriteAreNotRepeated) {
  Client client(server_.url());
  EXPECT_EQ(client.ask({"PING"}), "PONG");
  server_.pause();
  const int front = client.size();
  const int write = client.push("a");
  const int behind = client.size();
  client.router().flush();
  server_.kill();
  server_.start();
  ASSERT_TRUE(client.finish());
  EXPECT_TRUE(client.told(front).starts_with("not done: ")) << client.told(front);
  EXPECT_TRUE(client.told(write).starts_with("unknown: ")) << client.told(write);
  EXPECT_EQ(client.told(behind), "0");
  EXPECT_EQ(client.order(), (std::vector<int>{1, front, write, behind}));
}

TEST_F(FaultsTest, Refused) {
  server_.kill();
  Client client(server_.url("?command_timeout=0.3"));
  const std::int64_t begin = now_ms();
  const int write = client.push("a");
  const int read = client.size();
  ASSERT_TRUE(client.finish(kNoLonger));
  EXPECT_GE(now_ms() - begin, 300);
  const std::string reason = "not done: cannot reach " + server_.socket() + ": ";
  EXPECT_EQ(client.told(write), reason + "Connection refused");
  EXPECT_EQ(client.told(read), reason + "Connection refused");
  server_.start();
  client.loop().run_until([] { return false; }, 1'300);  // the longest pause
  EXPECT_EQ(client.ask({"PING"}), "PONG");
}

TEST_F(FaultsTest, NoSuchPlace) {
  Client nowhere("redis+unix:///nowhere/redis.sock?command_timeout=0.1");
  EXPECT_EQ(nowhere.ask({"PING"}),
            "not done: cannot reach /nowhere/redis.sock: No such file or directory");
  Client nobody("redis://127.0.0.1:" + std::to_string(free_port()) + "?command_timeout=0.1");
  EXPECT_TRUE(nobody.ask({"PING"}).ends_with(": Connection refused"));
  Client unknown("redis://no-such-host.invalid?command_timeout=5");
  const std::string told = unknown.ask({"PING"});
  EXPECT_TRUE(told.starts_with("not done: cannot reach no-such-host.invalid:6379: ")) << told;
}

TEST_F(FaultsTest, Paused) {
  Client client(server_.url("?command_timeout=0.3&connect_timeout=0.3"));
  Pushes pushes(client);
  pushes.add(1);
  ASSERT_TRUE(client.finish());
  server_.pause();
  pushes.add(10);
  const int read = client.size();
  ASSERT_TRUE(client.finish(kNoLonger));
  EXPECT_EQ(pushes.count("unknown: lost " + server_.socket() + ": no reply within 0.3 s"), 10U);
  EXPECT_TRUE(client.told(read).starts_with("not done: ")) << client.told(read);
  pushes.add(1);
  ASSERT_TRUE(client.finish(kNoLonger));
  EXPECT_EQ(pushes.count("not done: "), 1U);
  server_.resume();
  pushes.add(1);
  ASSERT_TRUE(client.finish());
  EXPECT_EQ(pushes.count("unknown: "), 10U);
  sleep_ms(50);  // what had reached the server is carried out late
  pushes.check(server_);
}

TEST_F(FaultsTest, BlackHole) {
  Proxy proxy(server_.socket());
  Client client(proxy.url("?command_timeout=0.3&connect_timeout=0.3"));
  Pushes pushes(client);
  pushes.add(1);
  ASSERT_TRUE(client.finish());
  proxy.harm(Proxy::Harm::kBlackHole);
  pushes.add(10);
  ASSERT_TRUE(client.finish(kNoLonger));
  EXPECT_EQ(pushes.count("unknown: "), 10U);
  client.send({"SET", "large", std::string(8'000'000, 'x')});  // more than the kernel takes
  ASSERT_TRUE(client.finish(kNoLonger));
  EXPECT_TRUE(client.told(12).starts_with("not done: ")) << client.told(12);
  proxy.harm(Proxy::Harm::kNone);
  pushes.add(10);
  ASSERT_TRUE(client.finish());
  EXPECT_EQ(pushes.count("not done: ") + pushes.count("unknown: "), 10U);
  pushes.check(server_);
}

TEST_F(FaultsTest, BlackHoleForALargeValue) {
  Proxy proxy(server_.socket());
  Client client(proxy.url("?command_timeout=0.3&connect_timeout=0.3"));
  EXPECT_EQ(client.ask({"PING"}), "PONG");
  proxy.harm(Proxy::Harm::kBlackHole);
  const int large = client.send({"SET", "large", std::string(8'000'000, 'x')});
  ASSERT_TRUE(client.finish(kNoLonger));
  EXPECT_TRUE(client.told(large).starts_with("not done: ")) << client.told(large);
  EXPECT_EQ(server_.call({"EXISTS", "large"}), "0");
}

TEST_F(FaultsTest, Trickle) {
  Proxy proxy(server_.socket());
  Client client(proxy.url());
  Pushes pushes(client);
  proxy.harm(Proxy::Harm::kTrickle);
  pushes.add(20);
  ASSERT_TRUE(client.finish());
  EXPECT_EQ(pushes.count("not done: ") + pushes.count("unknown: "), 0U);
  pushes.check(server_);

  Client impatient(proxy.url("?command_timeout=0.3"));
  EXPECT_EQ(impatient.ask({"PING"}), "PONG");
  const int set = impatient.send({"SET", "text", std::string(5'000, 'x')});
  const int get = impatient.send({"GET", "text"}, true);
  ASSERT_TRUE(impatient.finish(kNoLonger));
  EXPECT_EQ(impatient.told(set), "OK");
  EXPECT_TRUE(impatient.told(get).starts_with("not done: ")) << impatient.told(get).size();
}

TEST_F(FaultsTest, ResetInTheMiddleOfAReply) {
  for (std::size_t after = 0; after < 60; after += 7) {
    Proxy proxy(server_.socket());
    Client client(proxy.url());
    Pushes pushes(client);
    server_.call({"DEL", "list"});
    EXPECT_EQ(client.ask({"PING"}), "PONG");
    proxy.harm(Proxy::Harm::kReset, after);
    pushes.add(20);
    client.router().flush();
    client.loop().run_until([&] { return client.router().pending() < 20; }, 1'000);
    proxy.harm(Proxy::Harm::kNone);
    ASSERT_TRUE(client.finish());
    EXPECT_GE(pushes.count("unknown: lost "), 1U) << after;
    pushes.check(server_);
  }
}

TEST_F(FaultsTest, CorruptReplies) {
  for (std::size_t after = 0; after < 60; after += 7) {
    Proxy proxy(server_.socket());
    Client client(proxy.url("?command_timeout=0.3"));
    Pushes pushes(client);
    server_.call({"DEL", "list"});
    EXPECT_EQ(client.ask({"PING"}), "PONG");
    proxy.harm(Proxy::Harm::kCorrupt, after);
    pushes.add(20);
    client.router().flush();
    client.loop().run_until([&] { return client.router().pending() == 0; }, kNoLonger);
    proxy.harm(Proxy::Harm::kNone);
    ASSERT_TRUE(client.finish());
    EXPECT_GE(pushes.count("unknown: lost "), 1U) << after;
    pushes.check(server_);
    EXPECT_EQ(client.ask({"PING"}), "PONG");
  }
}

TEST_F(FaultsTest, WrongPassword) {
  server_.call({"CONFIG", "SET", "requirepass", "right"});
  server_.set_password("right");
  Client wrong(server_.url("?password=wrong"));
  const std::int64_t begin = now_ms();
  const std::string told = wrong.ask({"PING"});
  EXPECT_TRUE(told.starts_with("not done: cannot reach ")) << told;
  EXPECT_NE(told.find(": WRONGPASS "), std::string::npos) << told;
  EXPECT_LT(now_ms() - begin, 8'000);  // at once, not at the end of its time
  Client none(server_.url());
  EXPECT_NE(none.ask({"PING"}).find(": NOAUTH "), std::string::npos);
  Client right(server_.url("?password=right"));
  EXPECT_EQ(right.ask({"PING"}), "PONG");
  server_.call({"CONFIG", "SET", "requirepass", ""});
  server_.set_password("");
  server_.call({"CLIENT", "KILL", "TYPE", "normal"});
  const std::string unasked = right.ask({"PING"}, true);
  EXPECT_NE(unasked.find("without any password configured"), std::string::npos) << unasked;
}

TEST_F(FaultsTest, OutOfMemory) {
  Client client(server_.url());
  Pushes pushes(client);
  pushes.add(1);
  ASSERT_TRUE(client.finish());
  server_.call({"CONFIG", "SET", "maxmemory", "1"});
  pushes.add(1);
  const int read = client.size();
  ASSERT_TRUE(client.finish());
  EXPECT_EQ(pushes.count("not done: OOM "), 1U) << client.told(2);
  EXPECT_EQ(client.told(read), "1");
  Client late(server_.url());  // it cannot load its functions, which are there
  EXPECT_EQ(late.ask({"FCALL", "test_size", "1", "list"}, true), "1");
  server_.call({"CONFIG", "SET", "maxmemory", "0"});
  pushes.add(1);
  ASSERT_TRUE(client.finish());
  pushes.check(server_);
}

TEST_F(FaultsTest, ClientKill) {
  Client client(server_.url());
  Pushes pushes(client);
  for (int round = 0; round < 20; ++round) {
    pushes.add(5);
    client.router().flush();
    if (round % 2 == 0) client.loop().run_until([] { return false; }, 2);
    server_.call({"CLIENT", "KILL", "TYPE", "normal"});
    pushes.add(5);
    client.router().flush();
  }
  ASSERT_TRUE(client.finish());
  pushes.check(server_);
  EXPECT_EQ(client.ask({"PING"}), "PONG");
}

TEST_F(FaultsTest, FunctionFlush) {
  Client client(server_.url());
  Pushes pushes(client);
  for (int round = 0; round < 20; ++round) {
    pushes.add(50);
    client.router().flush();
    server_.call({"FUNCTION", "FLUSH"});
    client.loop().run_until([] { return false; }, 1);
  }
  ASSERT_TRUE(client.finish());
  EXPECT_EQ(pushes.count("not done: ") + pushes.count("unknown: "), 0U);
  EXPECT_EQ(server_.call({"LLEN", "list"}), "1000");
  pushes.check(server_);
}

TEST_F(FaultsTest, Busy) {
  server_.call({"CONFIG", "SET", "busy-reply-threshold", "10"});
  Client client(server_.url());
  Client other(server_.url("?command_timeout=0.3"));
  EXPECT_EQ(client.ask({"PING"}), "PONG");
  EXPECT_EQ(other.ask({"PING"}), "PONG");
  const int endless = client.send({"EVAL", "while true do end", "0"});
  client.router().flush();
  client.loop().run_until([] { return false; }, 50);
  const int refused = other.push("a");
  ASSERT_TRUE(other.finish(kNoLonger));
  EXPECT_TRUE(other.told(refused).starts_with("not done: BUSY ")) << other.told(refused);
  const int patient = client.push("b");
  client.router().flush();
  client.loop().run_until([] { return false; }, 50);
  EXPECT_EQ(server_.call({"SCRIPT", "KILL"}), "OK");
  ASSERT_TRUE(client.finish());
  EXPECT_TRUE(client.told(endless).starts_with("error: ")) << client.told(endless);
  EXPECT_EQ(client.told(patient), "1");
}

TEST_F(FaultsTest, TooManyClients) {
  server_.call({"CONFIG", "SET", "maxclients", "1"});
  Client first(server_.url());
  EXPECT_EQ(first.ask({"PING"}), "PONG");
  Client second(server_.url("?command_timeout=0.3"));
  const std::string told = second.ask({"PING"});
  EXPECT_NE(told.find("max number of clients reached"), std::string::npos) << told;
}

TEST_F(FaultsTest, ALoopThatWasAwayLosesNothing) {
  Client client(server_.url("?command_timeout=0.2&connect_timeout=0.2"));
  const int first = client.push("a");
  client.router().flush();
  sleep_ms(500);  // as if a callback had taken that long
  ASSERT_TRUE(client.finish());
  EXPECT_EQ(client.told(first), "1");
  const int second = client.push("b");
  client.router().flush();
  sleep_ms(500);
  ASSERT_TRUE(client.finish());
  EXPECT_EQ(client.told(second), "2");
}

TEST_F(FaultsTest, OpenAndClosedAtAnyTime) {
  for (unsigned turns = 0; turns < 12; ++turns) {
    Client client(server_.url());
    client.push("a");
    client.router().flush();
    for (unsigned i = 0; i < turns; ++i) uv_run(client.loop().get(), UV_RUN_NOWAIT);
    client.close();
    EXPECT_EQ(client.order().size(), 1U);
  }
}

}  // namespace
}  // namespace vu::testing
