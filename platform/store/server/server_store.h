// A store on servers, as the handles of this process see it. Handles of one address on
// one event loop share it: their commands keep the order in which they were called, and
// what is issued in one turn of the loop leaves in one write.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "../clock.h"
#include "../engine.h"
#include "../session.h"
#include "address.h"
#include "batch.h"
#include "channels.h"
#include "errand.h"
#include "event_stream.h"
#include "pipeline.h"
#include "protocol.h"
#include "router.h"
#include "sweeper.h"

struct uv_loop_s;

namespace vu::store {

class ServerStore final : private Router::Listener, private EventStream::Listener {
 public:
  // The store at `url` for the handles of `loop`; null, with the reason in `error`, where
  // it names none. Does not wait for a connection. Throws std::bad_alloc.
  static std::shared_ptr<ServerStore> at(const std::string& url, uv_loop_s* loop,
                                         std::string& error);

  ServerStore(std::string url, uv_loop_s* loop, const Address& address);
  ServerStore(const ServerStore&) = delete;
  ServerStore& operator=(const ServerStore&) = delete;
  // Sends what was accepted and can be sent without waiting.
  ~ServerStore();

  void attach(Session& session) { sessions_.push_back(&session); }
  void detach(Session& session) noexcept;
  // Whether this handle is the one that keeps the store's time.
  bool is_first(const Session& session) const { return sessions_.front() == &session; }

  // See Pipeline. They wake a handle, whose delivery then sends.
  void issue(Errand& errand, unsigned partition, std::string command);
  void issue(Errand& errand, Commands commands);
  // One of those that are sent together: see batch.h.
  void issue(Errand& errand, Command command, unsigned partition, const BatchPart& part);
  // Subscriptions begin and end with a barrier. They throw std::bad_alloc with nothing
  // changed.
  void begin(const std::vector<std::shared_ptr<RemoteSubscription>>& subscriptions);
  void end(const std::vector<std::shared_ptr<RemoteSubscription>>& subscriptions);
  // Ends one at once, with its handle.
  void drop(RemoteSubscription& subscription) noexcept { channels_.remove(subscription); }

  // Whether so much is on its way that no more is accepted.
  bool is_full() const;

  const Place& place() const { return place_; }
  bool is_spread() const { return router_->is_spread(); }
  // Where a request goes; -1: to every partition.
  int partition_for(const Request& request) const;

  void flush() noexcept;
  std::int64_t next_due() const { return sweeper_.next_due(); }
  void wake() noexcept;

  // Of all handles of this store.
  Traffic traffic() noexcept;
  const Clock& clock() const { return clock_; }
  void advance_clock(std::int64_t microseconds);
  void show(std::FILE* out);

 private:
  void on_outcome(void* ticket, const Outcome& outcome) noexcept override;
  void on_router_wake() noexcept override { wake(); }
  void on_message(std::string_view channel, std::string_view message) noexcept override;
  void on_mark(std::uint64_t mark) noexcept override;
  void on_gap() noexcept override;
  void on_stream_wake() noexcept override { wake(); }

  // Issues the batch that waits for more to come.
  void close_batch() noexcept;
  std::size_t pending() const;

  // Whether a handle has more waiting than `most`.
  bool has_backlog(std::size_t most) const;

  const std::string url_;
  Place place_;
  Clock clock_;
  std::vector<Session*> sessions_;
  std::unique_ptr<Router> router_;
  std::unique_ptr<EventStream> stream_;
  Channels channels_;
  Pipeline pipeline_;
  Batch* batch_ = nullptr;  // held; comes behind all that the pipeline has
  Sweeper sweeper_;
  bool is_paused_ = false;  // messages wait in the server
};

}  // namespace vu::store
