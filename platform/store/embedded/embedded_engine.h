// The engine inside the process: commands are carried out at once, in the call; only
// what they have to say waits in the queue.
#pragma once

#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <string>

#include "../engine.h"
#include "store.h"

namespace vu::store {

class EmbeddedEngine : public Engine {
 public:
  // `name` is what follows "embedded:". Handles of one name share a store, those
  // without a name too.
  EmbeddedEngine(const std::string& name, Session& session);
  EmbeddedEngine(const EmbeddedEngine&) = delete;
  EmbeddedEngine& operator=(const EmbeddedEngine&) = delete;
  ~EmbeddedEngine() override;

  std::int32_t submit(Request& request) override;
  void prepare_delivery() noexcept override { store_->expire_due(kBatch); }
  std::int64_t next_due() override { return store_->next_due(); }
  void close(const char* reason) noexcept override;
  void show(std::FILE* out) override { store_->show(out); }
  void advance_clock(std::int64_t microseconds) override { store_->advance_clock(microseconds); }

  // This handle's subscriptions, in the order they were made.
  using Subscriptions = std::map<std::uint64_t, std::pair<Shelf*, std::shared_ptr<Subscription>>>;
  Subscriptions& subscriptions() { return subscriptions_; }
  std::uint64_t next_number() { return next_number_++; }
  const std::shared_ptr<Store>& store() const { return store_; }

 private:
  Session& session_;
  std::shared_ptr<Store> store_;
  Subscriptions subscriptions_;
  std::uint64_t next_number_ = 0;
};

}  // namespace vu::store
