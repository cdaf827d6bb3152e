// The engine of one handle on a store that servers keep: requests become commands, and
// what comes back is posted in the order of the requests.
#pragma once

#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>

#include "../engine.h"
#include "reply_queue.h"
#include "server_store.h"

namespace vu::store {

class ServerEngine : public Engine {
 public:
  ServerEngine(std::shared_ptr<ServerStore> store, Session& session);
  ServerEngine(const ServerEngine&) = delete;
  ServerEngine& operator=(const ServerEngine&) = delete;
  ~ServerEngine() override;

  std::int32_t submit(Request& request) override;
  void prepare_delivery() noexcept override { store_->flush(); }
  std::int64_t next_due() override;
  void close(const char* reason) noexcept override;
  Traffic traffic() const override { return store_->traffic(); }
  void show(std::FILE* out) override { store_->show(out); }
  void advance_clock(std::int64_t microseconds) override { store_->advance_clock(microseconds); }

 private:
  void send(Request& request);
  void answer(Request& request);
  void scan(Request& request);
  void send_with_others(Request& request);
  template <typename Issue>
  void issue(PlacedErrand& errand, bool is_wanted, Issue issue_it);
  void subscribe(const Request& request);
  void unsubscribe(const Request& request);

  Session& session_;
  std::shared_ptr<ServerStore> store_;
  ReplyQueue replies_;
  // This handle's, in the order they were made, until they have ended.
  std::map<std::uint64_t, std::shared_ptr<RemoteSubscription>> subscriptions_;
  std::uint64_t next_number_ = 0;
};

}  // namespace vu::store
