// What stands behind the commands. One engine object per handle.
//
// The front has checked a request and turned it into bytes; the engine carries it out
// and posts what is to be delivered to the handle's session (session.h): replies in the
// order of the requests, events of one object in the order of its changes. Posting wakes
// whoever drives the handle; nothing is delivered inside a call.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include "request.h"

struct uv_loop_s;

namespace vu::store {

class Session;

// What is on its way between an engine and servers; nothing where there are none.
struct Traffic {
  std::uint64_t pending = 0;  // commands without a reply
  std::uint64_t unsent_bytes = 0;
  std::uint64_t reconnects = 0;  // connections that were lost and are back, since the beginning
};

class Engine {
 public:
  Engine() = default;
  Engine(const Engine&) = delete;
  Engine& operator=(const Engine&) = delete;
  virtual ~Engine();

  // Takes the request on. A receiver that is not wanted() gets no reply. Throws
  // std::bad_alloc where memory is short, with nothing changed and nothing posted;
  // returns a status other than VU_MOM_OK with the same meaning.
  virtual std::int32_t submit(Request& request) = 0;

  // Called first in every delivery, outside of callbacks: the time for what is due.
  virtual void prepare_delivery() noexcept = 0;

  // Microseconds until something is due; 0: now, -1: never.
  virtual std::int64_t next_due() = 0;

  // The session closes. Afterwards the session fails what is in its queue; the engine
  // posts the ends of its subscriptions behind that, each failed with `reason`, and lets
  // go of the store. No other call follows.
  virtual void close(const char* reason) noexcept = 0;

  virtual Traffic traffic() const { return {}; }

  // A picture of the store for a person who debugs.
  virtual void show(std::FILE* out) = 0;

  // For tests, see vu_platform_advance_clock.
  virtual void advance_clock(std::int64_t microseconds) = 0;
};

// The engine for `store`, or null with the reason in `error`. Throws std::bad_alloc.
std::unique_ptr<Engine> make_engine(const std::string& store, uv_loop_s* loop, Session& session,
                                    std::string& error);

}  // namespace vu::store
