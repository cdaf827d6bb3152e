#include "server_store.h"

#include <algorithm>
#include <map>
#include <utility>

#include "secrets.h"

namespace vu::store {

namespace {

// More than this is not accepted before some of it has left.
constexpr std::size_t kMostUnsentBytes = std::size_t{256} << 20;

// With more events waiting for delivery the others wait in the server.
constexpr std::size_t kMostEvents = 65536;

using Key = std::pair<std::string, uv_loop_s*>;

std::map<Key, std::weak_ptr<ServerStore>>& stores() {
  static auto* const all = new std::map<Key, std::weak_ptr<ServerStore>>();
  return *all;
}

}  // namespace

std::shared_ptr<ServerStore> ServerStore::at(const std::string& url, uv_loop_s* loop,
                                             std::string& error) {
  if (loop == nullptr) {
    error = "a store on a server needs an event loop";
    return nullptr;
  }
  std::weak_ptr<ServerStore>& entry = stores()[Key(url, loop)];
  std::shared_ptr<ServerStore> store = entry.lock();
  if (store) return store;
  Address address;
  if (!parse_address(url, address, error)) {
    stores().erase(Key(url, loop));
    return nullptr;
  }
  store = std::make_shared<ServerStore>(url, loop, address);
  entry = store;
  return store;
}

ServerStore::ServerStore(std::string url, uv_loop_s* loop, const Address& address)
    : url_(std::move(url)),
      router_(make_router(address, loop, *this)),
      stream_(make_event_stream(address, loop, *this)),
      channels_(clock_, *stream_),
      pipeline_(*router_, channels_, address.command_timeout_us),
      sweeper_(*this) {
  place_.prefix = address.prefix;
  place_.is_spread = is_spread();
}

ServerStore::~ServerStore() {
  close_batch();
  pipeline_.send_rest();
  router_->flush();
  router_->close();
  stream_->close();
  std::erase_if(stores(), [](const auto& entry) { return entry.second.expired(); });
}

void ServerStore::detach(Session& session) noexcept {
  sessions_.erase(std::remove(sessions_.begin(), sessions_.end(), &session), sessions_.end());
  wake();  // another handle keeps the time now
}

void ServerStore::wake() noexcept {
  if (!sessions_.empty()) sessions_.front()->wake();
}

void ServerStore::issue(Errand& errand, unsigned partition, std::string command) {
  close_batch();
  pipeline_.issue(errand, partition, std::move(command));
  wake();
}

void ServerStore::issue(Errand& errand, Commands commands) {
  close_batch();
  pipeline_.issue(errand, std::move(commands));
  wake();
}

void ServerStore::issue(Errand& errand, Command command, unsigned partition,
                        const BatchPart& part) {
  if (batch_ != nullptr && !batch_->takes(command)) close_batch();
  if (batch_ == nullptr) {
    batch_ = new Batch(command, partition);
  }
  batch_->add(errand, part);
  if (is_spread()) close_batch();  // a command on several keys has to wait while they move
  wake();
}

void ServerStore::close_batch() noexcept {
  if (batch_ == nullptr) return;
  Batch& closed = *std::exchange(batch_, nullptr);
  const ErrandHold hold(closed);
  if (closed.weight() == 0) return;  // there was no memory for the first
  try {
    pipeline_.issue(closed, closed.partition(), closed.take_command(place_));
  } catch (const std::bad_alloc&) {
    Outcome outcome;
    outcome.kind = Outcome::Kind::kNotDone;
    outcome.reason = "out of memory";
    closed.finish(outcome);
  }
}

std::size_t ServerStore::pending() const {
  return pipeline_.pending() + (batch_ == nullptr ? 0 : batch_->weight());
}

void ServerStore::begin(const std::vector<std::shared_ptr<RemoteSubscription>>& subscriptions) {
  close_batch();
  try {
    std::vector<Barrier::Step> steps;
    steps.reserve(subscriptions.size());
    for (const auto& subscription : subscriptions) {
      channels_.add(place_, subscription);
      steps.push_back({subscription, true});
    }
    pipeline_.add(std::move(steps));
  } catch (...) {
    for (const auto& subscription : subscriptions) channels_.remove(*subscription);
    throw;
  }
  wake();
}

void ServerStore::end(const std::vector<std::shared_ptr<RemoteSubscription>>& subscriptions) {
  close_batch();
  std::vector<Barrier::Step> steps;
  steps.reserve(subscriptions.size());
  for (const auto& subscription : subscriptions) steps.push_back({subscription, false});
  pipeline_.add(std::move(steps));
  for (const auto& subscription : subscriptions) subscription->is_ending = true;
  wake();
}

bool ServerStore::is_full() const {
  return pending() >= Session::kMostWaiting || pipeline_.unsent_bytes() > kMostUnsentBytes;
}

Traffic ServerStore::traffic() noexcept {
  close_batch();  // its bytes count too
  Traffic traffic;
  traffic.pending = pipeline_.pending();
  traffic.unsent_bytes = pipeline_.unsent_bytes();
  traffic.reconnects = router_->reconnects() + stream_->reconnects();
  return traffic;
}

int ServerStore::partition_for(const Request& request) const {
  if (!is_on_one_partition(request)) return -1;
  return static_cast<int>(partition_of(request.db, *request.type, request.identity));
}

void ServerStore::flush() noexcept {
  channels_.repeat_gap();
  if (is_paused_ && !has_backlog(kMostEvents / 2)) {
    is_paused_ = false;
    stream_->pause(false);
  }
  sweeper_.run();
  close_batch();
  pipeline_.pump();
  router_->flush();
  stream_->flush();
}

void ServerStore::advance_clock(std::int64_t microseconds) {
  close_batch();
  clock_.advance(microseconds);
  place_.now_us = clock_.calendar();
  sweeper_.clock_moved();
}

void ServerStore::on_outcome(void* ticket, const Outcome& outcome) noexcept {
  if (pipeline_.on_outcome(ticket, outcome)) wake();
}

void ServerStore::on_message(std::string_view channel, std::string_view message) noexcept {
  channels_.on_message(channel, message);
  if (is_paused_ || !has_backlog(kMostEvents)) return;
  is_paused_ = true;
  stream_->pause(true);
}

bool ServerStore::has_backlog(std::size_t most) const {
  return std::any_of(sessions_.begin(), sessions_.end(),
                     [most](const Session* session) { return session->waiting() > most; });
}

void ServerStore::on_mark(std::uint64_t mark) noexcept {
  if (pipeline_.on_mark(mark)) wake();
}

void ServerStore::on_gap() noexcept { channels_.tell_gap(); }

void ServerStore::show(std::FILE* out) {
  close_batch();
  std::fprintf(out, "store %s, %zu handles, %zu commands on their way, %zu bytes not yet sent\n",
               without_password(url_).c_str(), sessions_.size(), pipeline_.pending(),
               pipeline_.unsent_bytes());
  channels_.show(out);
}

}  // namespace vu::store
