#include "embedded_engine.h"

#include <utility>

#include "run.h"

namespace vu::store {

EmbeddedEngine::EmbeddedEngine(const std::string& name, Session& session)
    : session_(session), store_(Store::named(name)) {
  store_->attach(session);
}

EmbeddedEngine::~EmbeddedEngine() {
  for (auto& [number, entry] : subscriptions_) entry.first->watchers.remove(*entry.second);
  store_->detach(session_);
}

std::int32_t EmbeddedEngine::submit(Request& request) {
  return Run(*this, *store_, session_, request).execute();
}

void EmbeddedEngine::close(const char* reason) noexcept {
  for (auto& [number, entry] : subscriptions_) {
    auto& [shelf, subscription] = entry;
    shelf->watchers.remove(*subscription);
    subscription->end->set_time(store_->calendar());
    subscription->end->fail(reason);
    session_.post(std::move(subscription->end));
  }
  subscriptions_.clear();
}

}  // namespace vu::store
