#include "session.h"

#include <utility>

namespace vu::store {

namespace {

constexpr const char* kClosed = "the store handle was closed";

}  // namespace

Session::~Session() = default;

bool Session::open(const std::string& store, uv_loop_s* loop, std::string& error) {
  engine_ = make_engine(store, loop, *this, error);
  return engine_ != nullptr;
}

void Session::post(std::unique_ptr<Delivery> delivery) noexcept {
  queue_.push_back(std::move(delivery));
  tell();
}

void Session::wake() noexcept {
  woken_ = true;
  tell();
}

void Session::tell() noexcept {
  if (told_ || freed_) return;
  told_ = true;
  if (wake_ != nullptr) wake_(user_);
}

bool Session::deliver(std::uint32_t most) noexcept {
  if (delivering_) return true;
  delivering_ = true;
  told_ = true;  // by the return value
  woken_ = false;
  if (engine_) engine_->prepare_delivery();
  bool pause = false;
  for (std::uint32_t delivered = 0; delivered < most && !pause && !queue_.empty() && !freed_;
       ++delivered) {
    // Out of the queue while its callback runs, which may close this session.
    std::unique_ptr<Delivery> current = queue_.pop_front();
    const bool was_closed = closed();
    const Delivery::Progress progress = current->step(counters_);
    if (progress == Delivery::Progress::kDone) continue;
    // The step may have closed the session.
    // cppcheck-suppress [incorrectLogicOperator, knownConditionTrueFalse, oppositeExpression]
    if (closed() && !was_closed) current->fail(kClosed);
    queue_.push_front(std::move(current));
    pause = progress == Delivery::Progress::kPause;
  }
  delivering_ = false;
  if (freed_) {
    free();
    return false;
  }
  told_ = woken_ || !queue_.empty();
  return told_;
}

std::int64_t Session::next_due() {
  if (!queue_.empty()) return 0;
  return engine_ ? engine_->next_due() : -1;
}

void Session::close() noexcept {
  if (closed()) return;
  queue_.fail_all(kClosed);
  const std::unique_ptr<Engine> engine = std::move(engine_);
  reconnects_ = engine->traffic().reconnects;
  engine->close(kClosed);
}

vu_platform_stats Session::stats() const {
  Traffic traffic;
  traffic.reconnects = reconnects_;
  if (engine_) traffic = engine_->traffic();
  vu_platform_stats stats = {};
  stats.commands = counters_.commands;
  stats.refused = counters_.refused;
  stats.replies = counters_.replies;
  stats.errors = counters_.errors;
  stats.events = counters_.events;
  stats.missed = counters_.missed;
  stats.reconnects = traffic.reconnects;
  stats.waiting = queue_.size();
  stats.pending = traffic.pending;
  stats.unsent_bytes = traffic.unsent_bytes;
  return stats;
}

void Session::free() noexcept {
  close();
  freed_ = true;
  if (!delivering_) delete static_cast<vu_mom_handle*>(this);
}

}  // namespace vu::store
