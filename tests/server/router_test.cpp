// One server that works.
#include <gtest/gtest.h>

#include "client.h"
#include "free_port.h"
#include "redis_server.h"

namespace vu::testing {
namespace {

class RouterTest : public ::testing::Test {
 protected:
  static RedisServer& server() {
    static auto* const server = new RedisServer();
    return *server;
  }
  static void TearDownTestSuite() { server().kill(); }
  void SetUp() override { server().call({"FLUSHALL"}); }
};

TEST_F(RouterTest, AnswersInOrder) {
  Client client(server().url());
  std::vector<int> numbers;
  for (int i = 0; i < 3000; ++i) numbers.push_back(client.push(std::to_string(i)));
  ASSERT_TRUE(client.finish());
  EXPECT_EQ(client.order(), numbers);
  for (std::size_t i = 0; i < 3000; ++i) ASSERT_EQ(client.told(numbers[i]), std::to_string(i + 1));
  EXPECT_EQ(server().call({"LINDEX", "list", "2999"}), "2999");
}

TEST_F(RouterTest, SendsNothingBeforeTheFlush) {
  Client client(server().url());
  EXPECT_EQ(client.ask({"PING"}), "PONG");
  const int number = client.push("a");
  EXPECT_EQ(client.router().pending(), 1U);
  EXPECT_GT(client.router().unsent_bytes(), 0U);
  client.loop().run_until([] { return false; }, 50);
  EXPECT_FALSE(client.is_told(number));
  EXPECT_EQ(server().call({"LLEN", "list"}), "0");
  ASSERT_TRUE(client.finish());
  EXPECT_EQ(client.told(number), "1");
  EXPECT_EQ(client.router().unsent_bytes(), 0U);
}

TEST_F(RouterTest, PassesErrorsOfTheServer) {
  Client client(server().url());
  EXPECT_EQ(client.ask({"SET", "text", "a"}), "OK");
  EXPECT_TRUE(client.ask({"LLEN", "text"}).starts_with("error: WRONGTYPE")) << client.told(2);
  EXPECT_TRUE(client.ask({"NOSUCHCOMMAND"}).starts_with("error: ERR unknown command"));
}

TEST_F(RouterTest, MovesLargeValues) {
  Client client(server().url());
  std::string large;
  large.resize(20'000'000, 'x');
  const int set = client.send({"SET", "large", large});
  const int get = client.send({"GET", "large"}, true);
  const int push = client.push("behind");
  ASSERT_TRUE(client.finish());
  EXPECT_EQ(client.told(set), "OK");
  EXPECT_TRUE(client.told(get) == large);
  EXPECT_EQ(client.told(push), "1");
  EXPECT_EQ(client.ask({"GET", "large"}, true).size(), large.size());
}

TEST_F(RouterTest, UsesTheDatabaseOfTheAddress) {
  Client client(server().url("?database=3"));
  EXPECT_EQ(client.ask({"SET", "key", "in 3"}), "OK");
  EXPECT_EQ(server().call({"GET", "key"}), "nil");
  Client other(server().url("?database=99"));
  const std::string told = other.ask({"GET", "key"}, true);
  EXPECT_TRUE(told.starts_with("not done: cannot reach ")) << told;
  EXPECT_NE(told.find("DB index is out of range"), std::string::npos) << told;
}

TEST_F(RouterTest, ReachesAPort) {
  const RedisServer on_port({}, free_port());
  for (const std::string host : {"127.0.0.1", "localhost"}) {
    Client client("redis://" + host + ":" + std::to_string(on_port.port()));
    EXPECT_EQ(client.ask({"PING"}), "PONG") << host;
  }
}

TEST_F(RouterTest, ClosesWithEverythingTold) {
  Client client(server().url());
  const int early = client.push("early");
  client.close();
  EXPECT_EQ(client.told(early), "not done: the store was closed");
  EXPECT_EQ(server().call({"LLEN", "list"}), "0");

  Client other(server().url());
  EXPECT_EQ(other.ask({"PING"}), "PONG");
  const int write = other.push("sent");
  const int read = other.size();
  other.close();
  EXPECT_EQ(other.told(write), "unknown: the store was closed");
  EXPECT_EQ(other.told(read), "not done: the store was closed");
  while (server().call({"LLEN", "list"}) != "1") sleep_ms(1);  // it had left
}

TEST_F(RouterTest, LoadsItsFunctionsAgain) {
  Client client(server().url());
  const int first = client.push("a");
  ASSERT_TRUE(client.finish());
  EXPECT_EQ(client.told(first), "1");
  server().call({"FUNCTION", "FLUSH"});
  std::vector<int> numbers;
  for (int i = 0; i < 10; ++i) numbers.push_back(client.push("b"));
  const int read = client.send({"LLEN", "list"}, true);
  numbers.push_back(read);
  for (int i = 0; i < 10; ++i) numbers.push_back(client.push("c"));
  ASSERT_TRUE(client.finish());
  for (std::size_t i = 0; i < 10; ++i) EXPECT_EQ(client.told(numbers[i]), std::to_string(i + 2));
  EXPECT_EQ(client.told(read), "11");  // not what it was before the ten were done
  for (std::size_t i = 11; i < 21; ++i) EXPECT_EQ(client.told(numbers[i]), std::to_string(i + 1));
  EXPECT_EQ(std::vector<int>(client.order().begin() + 1, client.order().end()), numbers);
}

TEST_F(RouterTest, SaysWhyItsFunctionsCannotBeLoaded) {
  server().call(
      {"ACL", "SETUSER", "reader", "on", ">secret", "~*", "&*", "+@all", "-function|load"});
  server().call({"FUNCTION", "FLUSH"});
  Client client(server().url("?user=reader&password=secret"));
  const int push = client.push("a");
  ASSERT_TRUE(client.finish());
  EXPECT_TRUE(client.told(push).starts_with("not done: ERR Function not found"))
      << client.told(push);
  EXPECT_NE(client.told(push).find("cannot be loaded: NOPERM"), std::string::npos);
  EXPECT_EQ(client.ask({"PING"}), "PONG");
}

}  // namespace
}  // namespace vu::testing
