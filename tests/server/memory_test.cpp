// What is promised where memory fails: nothing crashes, every request that was accepted is
// completed exactly once, subscribers are told of what they miss, and the next call works.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <functional>

#include "failing_allocations.h"
#include "process.h"
#include "redis_server.h"

namespace vu::testing {
namespace {

constexpr long kMostAllocations = 5000;

// What a request or a subscription was told, counted without memory.
struct Told {
  int replies = 0;
  int ends = 0;
  int gaps = 0;
  std::int32_t status = 0;
};

void note(Told& told, const vu_mom_reply& reply, bool is_end) {
  told.status = vu_platform_details_of(&reply)->status;
  ++(is_end ? told.ends : told.replies);
}

void on_reply(void*, const vu_mom_reply* reply, void* told) {
  note(*static_cast<Told*>(told), *reply, true);
}
// Of a command on a level, and of a scan.
void on_last_reply(void*, const vu_mom_reply* reply, void* told) {
  note(*static_cast<Told*>(told), *reply, reply->end_mark != 0);
}
std::int32_t on_scanned(void*, const vu_mom_reply* reply, void* told) {
  on_last_reply(nullptr, reply, told);
  return 0;
}
std::int32_t on_event(void*, const vu_mom_reply* reply, void* told) {
  Told& all = *static_cast<Told*>(told);
  note(all, *reply, reply->type_code == VU_MOM_TYPE_SUBSCRIPTION_ENDED);
  if (reply->type_code == VU_MOM_TYPE_NONE && all.status != VU_MOM_OK) ++all.gaps;
  return 0;
}

// uv ends the process where its table of descriptors cannot grow: here it has its size.
void grow_table(uv_loop_t* loop) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const int high = fcntl(ends[0], F_DUPFD, 200);
  uv_poll_t poll;
  uv_poll_init(loop, &poll, high);
  uv_poll_start(&poll, UV_READABLE, [](uv_poll_t*, int, int) {});
  uv_close(reinterpret_cast<uv_handle_t*>(&poll), nullptr);
  uv_run(loop, UV_RUN_NOWAIT);
  for (const int end : {ends[0], ends[1], high}) close(end);
}

class NoMemoryTest : public ::testing::Test {
 protected:
  using Command = std::function<std::int32_t(vu_mom_handle*, Told&)>;
  using Preparation = std::function<void(Process&)>;

  // Runs the command and its reply on a new connection, with each allocation failing in turn.
  void check(const std::string& name, const Command& command, const Preparation& prepare = {}) {
    for (const Failing failing : {Failing::kOnce, Failing::kFromThenOn}) {
      bool has_failed = true;
      long spared = 0;
      for (; has_failed && !HasFailure(); ++spared) {
        SCOPED_TRACE(name + ", allocation " + std::to_string(spared) +
                     (failing == Failing::kOnce ? "" : " and all behind it"));
        ASSERT_LT(spared, kMostAllocations);
        has_failed = run(command, prepare, spared, failing);
        EXPECT_TRUE(has_failed || spared > 0);
      }
      std::printf("           %s: %ld failures\n", name.c_str(), spared - 1);
    }
  }

  // Returns whether an allocation has failed.
  bool run(const Command& command, const Preparation& prepare, long spared, Failing failing) {
    Process process(server_.url());
    grow_table(process.loop.get());
    vu_mom_handle* const handle = process.handle.handle();
    Told events;
    EXPECT_EQ(vu_mom_subscribe(handle, 0, watched_, 2, on_event, &events), VU_MOM_OK);
    process.ask(next_);
    if (prepare) prepare(process);
    events = {};
    before_ = {};
    accepted_before_ = 0;

    Told told;
    const std::function<bool()> is_done([&] {
      vu_platform_deliver(handle, 1000);
      const bool is_heard = !is_heard_ || told.status != VU_MOM_OK || events.replies != 0;
      return told.ends != 0 && is_heard;  // or subscribers know what they may have missed
    });
    fail_allocations(spared, failing);
    const std::int32_t status = command(handle, told);
    if (status == VU_MOM_OK) process.loop.run_until(is_done, without_memory_ms_);
    const bool has_failed = end_failing_allocations();
    const bool is_accepted = status == VU_MOM_OK;
    EXPECT_TRUE(is_accepted || status == VU_MOM_NO_MEMORY) << status;
    if (is_accepted) {
      EXPECT_TRUE(process.loop.run_until(is_done, 30'000));
    }
    const Seen next = process.ask(next_);
    EXPECT_EQ(next.status, VU_MOM_OK) << next.error;
    EXPECT_EQ(told.ends, is_accepted ? 1 : 0);
    if (!has_failed) {
      EXPECT_EQ(told.status, VU_MOM_OK);
    }
    process.handle.close();
    process.handle.drain();
    EXPECT_EQ(told.ends, is_accepted ? 1 : 0);
    EXPECT_EQ(before_.ends, accepted_before_);
    EXPECT_EQ(events.ends, 1);
    return has_failed;
  }

  RedisServer server_;
  const Live watched_ = port("device:'a' number:1 rx:1 note:'a note that is no small string'");
  const Live next_ = port("device:'next'");
  bool is_heard_ = false;
  // Of what a command has sent before the request that is looked at.
  Told before_;
  int accepted_before_ = 0;
  // So long a request may take to end while memory fails; then there is memory again.
  unsigned without_memory_ms_ = 10;
};

TEST_F(NoMemoryTest, WhatIsAsked) {
  const Live list = port("device:'l' number:1 rx:1");
  const Live hash = port("device:'h' number:1 rx:1 note:'x'");
  const Live sorted = port("device:'z' number:1 rx:1");
  const std::size_t tags[] = {3, 4};
  const double score = 1.5;
  const vu_mom_message member = sorted;
  Process process(server_.url());
  process.handle.set(watched_);
  process.handle.send(vu_mom_rpush, 0, list);
  process.handle.send(vu_mom_hmset, 0, hash, tags, 2);
  process.handle.send(vu_mom_zadd, 0, &score, &member, 1);
  process.ask(next_);
  check("get", [&](vu_mom_handle* handle, Told& told) {
    return vu_mom_get(handle, 0, watched_, on_reply, &told);
  });
  check("hmget", [&](vu_mom_handle* handle, Told& told) {
    return vu_mom_hmget(handle, 0, hash, tags, 2, on_reply, &told);
  });
  check("lrange", [&](vu_mom_handle* handle, Told& told) {
    return vu_mom_lrange(handle, 0, list, 0, -1, on_reply, &told);
  });
  check("zrange", [&](vu_mom_handle* handle, Told& told) {
    return vu_mom_zrange(handle, 0, sorted, 0, -1, on_reply, &told);
  });
  check("pexpire", [&](vu_mom_handle* handle, Told& told) {
    return vu_mom_pexpire(handle, 0, watched_, 1, 100, 0, on_last_reply, &told);
  });
  check("pexpire_fields", [&](vu_mom_handle* handle, Told& told) {
    return vu_mom_pexpire_fields(handle, 0, hash, 2, tags, 2, 100, 0, on_last_reply, &told);
  });
  check("del_expire", [&](vu_mom_handle* handle, Told& told) {
    return vu_mom_del_expire(handle, 0, hash, 2, on_last_reply, &told);
  });
  check("scan", [&](vu_mom_handle* handle, Told& told) {
    return vu_mom_scan(handle, 0, next_, 0, on_scanned, &told);
  });
  check("scan_index", [&](vu_mom_handle* handle, Told& told) {
    return vu_mom_scan_index(handle, 0, next_, 0, on_scanned, &told);
  });
}

TEST_F(NoMemoryTest, WhatIsWrittenAndHeard) {
  is_heard_ = true;
  const std::size_t tags[] = {3, 4};
  const double score = 1.5;
  const vu_mom_message member = watched_;
  std::int32_t flags = 0;
  const Preparation clear = [&](Process& process) { process.handle.send(vu_mom_del, 0, watched_); };
  const Preparation fill = [&](Process& process) { process.handle.set(watched_); };
  const auto settled = [this](const Preparation& prepare) {
    return [this, prepare](Process& process) {
      prepare(process);
      process.ask(next_);
    };
  };
  check("set", [&](vu_mom_handle* handle, Told& told) {
    return vu_mom_set_ext(handle, 0, &flags, watched_, on_reply, &told);
  });
  check(
      "hmset",
      [&](vu_mom_handle* handle, Told& told) {
        return vu_mom_hmset(handle, 0, watched_, tags, 2, on_reply, &told);
      },
      settled(clear));
  check(
      "rpush",
      [&](vu_mom_handle* handle, Told& told) {
        return vu_mom_rpush(handle, 0, watched_, on_reply, &told);
      },
      settled(clear));
  check(
      "zadd",
      [&](vu_mom_handle* handle, Told& told) {
        return vu_mom_zadd(handle, 0, &score, &member, 1, on_reply, &told);
      },
      settled(clear));
  check(
      "sadd",
      [&](vu_mom_handle* handle, Told& told) {
        return vu_mom_sadd(handle, 0, watched_, on_reply, &told);
      },
      settled(clear));
  check(
      "incr",
      [&](vu_mom_handle* handle, Told& told) {
        return vu_mom_incr(handle, 0, watched_, on_reply, &told);
      },
      settled(clear));
  check("publish", [&](vu_mom_handle* handle, Told& told) {
    return vu_mom_publish(handle, 0, watched_, on_reply, &told);
  });
  check(
      "pdel",
      [&](vu_mom_handle* handle, Told& told) {
        return vu_mom_pdel(handle, 0, watched_, 1, on_last_reply, &told);
      },
      settled(fill));
}

// Such are sent together.
TEST_F(NoMemoryTest, SeveralOfOneSort) {
  Process process(server_.url());
  process.handle.set(watched_);
  process.ask(next_);
  const auto three_times = [this](auto send) {
    return [this, send](vu_mom_handle* handle, Told& told) {
      for (int i = 0; i < 2; ++i) {
        if (send(handle, before_) == VU_MOM_OK) ++accepted_before_;
      }
      return send(handle, told);
    };
  };
  check("get, get, get", three_times([&](vu_mom_handle* handle, Told& told) {
          return vu_mom_get(handle, 0, watched_, on_reply, &told);
        }));
  is_heard_ = true;
  check("publish, publish, publish", three_times([&](vu_mom_handle* handle, Told& told) {
          return vu_mom_publish(handle, 0, watched_, on_reply, &told);
        }));
}

TEST_F(NoMemoryTest, WhileAConnectionIsMadeAgain) {
  without_memory_ms_ = 60;  // it begins after 10
  const Preparation lose = [this](Process&) {
    server_.call({"CLIENT", "KILL", "TYPE", "normal"});
    server_.call({"CLIENT", "KILL", "TYPE", "pubsub"});
  };
  check(
      "get after the connection was lost",
      [&](vu_mom_handle* handle, Told& told) {
        return vu_mom_get(handle, 0, watched_, on_reply, &told);
      },
      lose);
  const std::size_t tags[] = {3, 4};
  check(
      "hmset after the functions were lost",
      [&](vu_mom_handle* handle, Told& told) {
        return vu_mom_hmset(handle, 0, next_, tags, 2, on_reply, &told);
      },
      [this](Process&) {
        server_.call({"FUNCTION", "FLUSH"});
      });
}

TEST_F(NoMemoryTest, ASubscriptionBeginsAndEnds) {
  check("subscribe", [&](vu_mom_handle* handle, Told& told) {
    const std::int32_t status = vu_mom_subscribe(handle, 0, next_, 1, on_event, &told);
    if (status != VU_MOM_OK) return status;
    // The subscription is there, and ends however much memory there is by now.
    vu_platform_deliver(handle, 1000);
    const Spared spared;
    return vu_mom_unsubscribe(handle, 0, next_, 1, nullptr, nullptr);
  });
}

TEST_F(NoMemoryTest, ASubscriptionOfAFieldBeginsAndEnds) {
  const std::size_t tag = 3;
  const vu_mom_stream_cb callback = on_event;
  check("subscribe_field", [&](vu_mom_handle* handle, Told& told) {
    void* privdata = &told;
    const std::int32_t status =
        vu_mom_subscribe_field(handle, 0, next_, 2, &tag, &callback, &privdata, 1);
    if (status != VU_MOM_OK) return status;
    vu_platform_deliver(handle, 1000);
    const Spared spared;
    return vu_mom_unsubscribe_field(handle, 0, next_, 2, &tag, nullptr, nullptr, 1);
  });
}

TEST_F(NoMemoryTest, AStoreIsOpened) {
  for (const Failing failing : {Failing::kOnce, Failing::kFromThenOn}) {
    vu_mom_handle* handle = nullptr;
    for (long spared = 0; handle == nullptr && spared < kMostAllocations; ++spared) {
      UvLoop loop;
      const std::string url = server_.url();
      char error[100] = "untouched";
      fail_allocations(spared, failing);
      handle = vu_platform_open(url.c_str(), loop.get(), nullptr, nullptr, error, sizeof(error));
      const bool has_failed = end_failing_allocations();
      EXPECT_EQ(handle == nullptr, has_failed) << spared << error;
      if (handle == nullptr) {
        EXPECT_STREQ(error, "");
      } else {
        vu_platform_free(handle);
      }
    }
    EXPECT_NE(handle, nullptr);
  }
}

}  // namespace
}  // namespace vu::testing
