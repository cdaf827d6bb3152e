// The threading rules: one thread at a time, whichever it is.
#include <atomic>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

#include "store_fixture.h"

namespace vu::store::test {
namespace {

Live counter(unsigned number) { return port("device:'a' number:" + std::to_string(number)); }

TEST(Threads, TakeTurns) {
  constexpr unsigned kThreads = 4;
  constexpr unsigned kTurns = 200;
  std::mutex lock;  // what the interpreter lock is elsewhere
  std::deque<Client> clients;
  for (unsigned i = 0; i < kThreads; ++i) clients.emplace_back();
  clients[0].subscribe(counter(0), 0, 1);
  std::vector<std::thread> threads;
  for (Client& client : clients) {
    threads.emplace_back([&client, &lock] {
      for (unsigned turn = 0; turn < kTurns; ++turn) {
        const std::lock_guard<std::mutex> held(lock);
        client.send(vu_mom_lpush, 0, counter(turn % 7));
        EXPECT_EQ(client.ask(vu_mom_llen, 0, counter(turn % 7)).status, VU_MOM_OK);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  std::int64_t pushed = 0;
  for (unsigned i = 0; i < 7; ++i) pushed += clients[1].ask(vu_mom_llen, 0, counter(i)).integer;
  EXPECT_EQ(pushed, kThreads * kTurns);
  EXPECT_EQ(clients[0].events().size(), kThreads * kTurns);
}

TEST(Threads, AHandleMayChangeThreads) {
  Client client;
  client.set(counter(1));
  std::thread([&client] { EXPECT_TRUE(client.get(counter(1)).has_data); }).join();
  std::thread([&client] { client.free(); }).join();
}

TEST(Threads, OthersMayComeInDuringACallback) {
  Client client;
  Client other;
  int found = 0;
  EXPECT_EQ(vu_mom_get(client.handle(), 0, counter(1), &Client::on_reply,
                       client.slot(1,
                                   [&](const Seen&) {
                                     std::thread([&] {
                                       other.set(counter(1));
                                       found += other.get(counter(1)).has_data ? 1 : 0;
                                     }).join();
                                     found += other.get(counter(1)).has_data ? 1 : 0;
                                   })),
            VU_MOM_OK);
  EXPECT_EQ(client.drain().size(), 1u);
  EXPECT_EQ(found, 2);
}

#ifndef NDEBUG

class ThreadsDeathTest : public testing::Test {
 protected:
  void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

bool lock_is_held = true;

TEST_F(ThreadsDeathTest, ACallWithoutTheInterpreterLock) {
  Client client;
  const Live message = counter(1);
  EXPECT_DEATH(
      {
        vu_platform_check_threads([] { return lock_is_held ? 1 : 0; });
        client.set(message);
        lock_is_held = false;
        std::int32_t flag = 0;
        vu_mom_set_ext(client.handle(), 0, &flag, message, nullptr, nullptr);
      },
      "^vu_mom_set_ext: called on a thread that does not hold the interpreter lock\n");
}

TEST_F(ThreadsDeathTest, ADeliveryWithoutTheInterpreterLock) {
  Client client;
  EXPECT_DEATH(
      {
        vu_platform_check_threads([] { return 0; });
        client.deliver(1);
      },
      "^vu_platform_deliver: called on a thread that does not hold the interpreter lock\n");
}

// The wake function runs inside the library; here it lets another thread in.
void let_another_in(void* message) {
  std::thread([message] {
    vu_platform_message_is_live(*static_cast<const Live*>(message));
  }).join();
}

TEST_F(ThreadsDeathTest, ACallWhileAnotherThreadIsInside) {
  Live message = counter(1);
  EXPECT_DEATH(
      {
        char error[100] = "";
        vu_mom_handle* const handle =
            vu_platform_open("embedded:", nullptr, let_another_in, &message, error, sizeof error);
        vu_mom_get(handle, 0, message, &Client::on_reply, nullptr);
      },
      "^vu_platform_message_is_live: called while another thread is inside the store library\n");
}

TEST_F(ThreadsDeathTest, ACallbackThatReturnsWhileAnotherThreadIsInside) {
  Live message = counter(1);
  static std::atomic<bool> is_inside{false};
  EXPECT_DEATH(
      {
        char error[100] = "";
        Client client;
        vu_mom_handle* const handle = vu_platform_open(
            "embedded:", nullptr,
            [](void*) {
              is_inside = true;
              for (;;) std::this_thread::yield();
            },
            nullptr, error, sizeof error);
        vu_mom_get(client.handle(), 0, message, &Client::on_reply, client.slot(1, [&](const Seen&) {
          std::thread([&] { vu_mom_get(handle, 0, message, &Client::on_reply, nullptr); }).detach();
          while (!is_inside) std::this_thread::yield();
        }));
        client.deliver(1);
      },
      "^a callback: returned while another thread is inside the store library\n");
}

#endif

}  // namespace
}  // namespace vu::store::test
