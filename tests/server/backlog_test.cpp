// A handle whose deliveries wait: how many events are read, and that none is lost.
#include <gtest/gtest.h>

#include "process.h"
#include "redis_server.h"
#include "session.h"

namespace vu::testing {
namespace {

// Of events waiting in a handle; at half of it reading goes on.
constexpr std::size_t kMostEvents = 65536;
// What one reading may bring behind the event at which it stops.
constexpr std::size_t kOneReading = 65536 / 50;
constexpr int kEvents = 90'000;
constexpr int kEventLabel = 1;

class BacklogTest : public ::testing::Test {
 protected:
  BacklogTest() {
    process_.handle.subscribe(port(""), 0, kEventLabel);
    process_.ask(port(""));
    process_.handle.take();
  }

  // Events of one object whose times count up from 1.
  void publish(int count) {
    constexpr const char* kScript = R"(
        for time = 1, ARGV[1] do
          redis.call('PUBLISH', KEYS[1], '1 29 ' .. time .. ' 0 n a/1/\n')
        end
        return 'published')";
    EXPECT_EQ(server_.call({"EVAL", kScript, "1", "vu:o:0:acme.net.Port:", std::to_string(count)}),
              "published");
  }
  std::size_t waiting() const { return process_.handle.handle()->waiting(); }
  // Lets the loop read, and delivers nothing.
  void turn() {
    for (int i = 0; i < 20; ++i) uv_run(process_.loop.get(), UV_RUN_NOWAIT);
  }
  void deliver_until(std::size_t left) {
    while (waiting() > left) {
      process_.handle.deliver(1);
      for (const Seen& seen : process_.handle.take()) {
        if (seen.label != kEventLabel) continue;
        ASSERT_EQ(seen.status, VU_MOM_OK) << seen.error;
        ASSERT_EQ(seen.time_us, ++heard_);
      }
    }
  }

  // So many events are more than a server keeps by itself for a slow subscriber.
  RedisServer server_{{"--client-output-buffer-limit", "pubsub 0 0 0"}};
  Process process_{server_.url()};
  int heard_ = 0;
};

TEST_F(BacklogTest, WaitsInTheServerAndComesBackInOrder) {
  publish(kEvents);
  ASSERT_TRUE(process_.loop.run_until([this] { return waiting() > kMostEvents; }, 60'000));
  const std::size_t most = waiting();
  EXPECT_LE(most, kMostEvents + kOneReading);
  turn();
  EXPECT_EQ(waiting(), most);

  // Nothing more is read until half of it is left.
  deliver_until(kMostEvents / 2 + 1);
  turn();
  EXPECT_EQ(waiting(), kMostEvents / 2 + 1);
  deliver_until(kMostEvents / 2 - 1);
  ASSERT_TRUE(process_.loop.run_until([this] { return waiting() > kMostEvents / 2; }, 60'000));

  // The rest, and what comes afterwards.
  ASSERT_TRUE(process_.loop.run_until(
      [this] {
        deliver_until(0);
        return heard_ == kEvents;
      },
      60'000));
  heard_ = 0;
  publish(10);
  EXPECT_TRUE(process_.loop.run_until(
      [this] {
        deliver_until(0);
        return heard_ == 10;
      },
      60'000));
}

TEST_F(BacklogTest, CommandsGoOnMeanwhile) {
  publish(kEvents);
  ASSERT_TRUE(process_.loop.run_until([this] { return waiting() > kMostEvents; }, 60'000));
  Process other(server_.url());
  other.handle.set(port("device:'b' rx:7"));
  EXPECT_EQ(other.ask(port("device:'b'")).text(), "device: \"b\" rx: 7");
  // A handle that closes lets the others of its store read on.
  store::test::Client neighbour(server_.url(), process_.loop.get());
  neighbour.subscribe(port(""), 0, kEventLabel);
  process_.handle.close();
  std::size_t heard = 0;
  bool is_there = false;
  void* const slot = neighbour.slot(2, [&](const Seen&) { is_there = true; });
  ASSERT_EQ(vu_mom_get(neighbour.handle(), 0, port(""), &store::test::Client::on_reply, slot),
            VU_MOM_OK);
  EXPECT_TRUE(process_.loop.run_until(
      [&] {
        neighbour.deliver(1000);
        heard += neighbour.take().size();
        return is_there;
      },
      60'000));
}

}  // namespace
}  // namespace vu::testing
