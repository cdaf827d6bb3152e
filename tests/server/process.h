// A process as the store sees it: an event loop and handles on a store, through the C
// interface.
#pragma once

#include <functional>
#include <string>

#include "../store/store_fixture.h"
#include "client.h"

namespace vu::testing {

using store::test::Live;
using store::test::port;
using store::test::Seen;

// A handle and the loop that drives it.
class Process {
 public:
  explicit Process(const std::string& url) : handle(url, loop.get()) {}

  UvLoop loop;
  store::test::Client handle;

  // Turns the loop and delivers until `done` says so. False where that takes too long.
  bool drive_until(const std::function<bool()>& done, unsigned most_ms = 60'000) {
    return loop.run_until(
        [&] {
          handle.deliver(1000);
          return done();
        },
        most_ms);
  }

  // The reply to `get`, behind which everything that was issued before has been answered.
  Seen ask(const Live& message) {
    bool is_there = false;
    Seen reply;
    void* const slot = handle.slot(-1, [&](const Seen& seen) {
      reply = seen;
      is_there = true;
    });
    EXPECT_EQ(vu_mom_get(handle.handle(), 0, message, &store::test::Client::on_reply, slot),
              VU_MOM_OK);
    EXPECT_TRUE(drive_until([&] { return is_there; }));
    return reply;
  }
};

}  // namespace vu::testing
