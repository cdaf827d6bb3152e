// What a handle is: an engine and the queue of what it has to deliver.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "delivery.h"
#include "engine.h"
#include "vu_platform.h"

namespace vu::store {

class Session {
 public:
  // How many deliveries may wait before further requests are refused.
  static constexpr std::size_t kMostWaiting = std::size_t{1} << 20;

  Session(vu_platform_wake on_wake, void* user) : wake_(on_wake), user_(user) {}
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;
  ~Session();

  // False, with the reason in `error`, where there is no such store.
  bool open(const std::string& store, uv_loop_s* loop, std::string& error);

  bool closed() const { return !engine_; }
  Engine& engine() { return *engine_; }  // Requires: not closed.
  std::size_t waiting() const { return queue_.size(); }
  Counters& counters() { return counters_; }
  // See vu_platform.h.
  vu_platform_stats stats() const;

  // Called by engines.
  void post(std::unique_ptr<Delivery> delivery) noexcept;
  // Asks for a delivery, though nothing may be waiting: something is due earlier, or the
  // engine has something to do. Inside a delivery: for another one after it.
  void wake() noexcept;

  // See vu_platform.h for what these mean.
  bool deliver(std::uint32_t most) noexcept;
  std::int64_t next_due();
  void close() noexcept;
  void free() noexcept;  // deletes the session, now or after the running delivery

 private:
  void tell() noexcept;

  vu_platform_wake wake_;
  void* user_;
  std::unique_ptr<Engine> engine_;
  DeliveryQueue queue_;
  Counters counters_;
  std::uint64_t reconnects_ = 0;  // as the engine counted them in the end
  bool told_ = false;             // the driver knows that it should call deliver
  bool delivering_ = false;
  bool woken_ = false;  // since the running delivery began
  bool freed_ = false;
};

}  // namespace vu::store

struct vu_mom_handle : vu::store::Session {
  using Session::Session;
};
