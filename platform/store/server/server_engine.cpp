#include "server_engine.h"

#include <string>
#include <utility>
#include <vector>

#include "../identity.h"
#include "protocol.h"
#include "request_errand.h"
#include "server_scan.h"

namespace vu::store {

ServerEngine::ServerEngine(std::shared_ptr<ServerStore> store, Session& session)
    : session_(session), store_(std::move(store)), replies_(session) {
  store_->attach(session);
}

ServerEngine::~ServerEngine() {
  for (const auto& [number, subscription] : subscriptions_) store_->drop(*subscription);
  store_->detach(session_);
}

std::int32_t ServerEngine::submit(Request& request) {
  if (request.command == Command::kSubscribe) {
    subscribe(request);
    return VU_MOM_OK;
  }
  if (request.command == Command::kUnsubscribe) {
    unsubscribe(request);
    return VU_MOM_OK;
  }
  if (store_->is_full() || replies_.size() >= Session::kMostWaiting) return VU_MOM_FAILED;
  if (request.type == nullptr) {
    answer(request);
  } else if (request.command == Command::kScan || request.command == Command::kScanIndex) {
    scan(request);
  } else if (is_for_batch(request, store_->place())) {
    send_with_others(request);
  } else {
    send(request);
  }
  return VU_MOM_OK;
}

void ServerEngine::send(Request& request) {
  const bool is_wanted = request.receiver.wanted();
  const Place& place = store_->place();
  // One server has them all.
  const int partition = store_->is_spread() ? store_->partition_for(request) : -1;
  Commands commands;  // to several partitions; else it is `command`
  std::string command;
  if (partition < 0 && store_->is_spread()) {
    for (unsigned part = 0; part < kPartitions; ++part) {
      commands.emplace_back(part, encode(request, place, static_cast<int>(part)));
    }
  } else {
    command = encode(request, place, partition);
  }
  const unsigned parts = commands.empty() ? 1 : kPartitions;
  RequestErrand& errand = *new RequestErrand(store_->clock(), request, parts);
  issue(errand, is_wanted, [&] {
    if (commands.empty()) {
      store_->issue(errand, static_cast<unsigned>(partition < 0 ? 0 : partition),
                    std::move(command));
    } else {
      store_->issue(errand, std::move(commands));
    }
  });
}

void ServerEngine::send_with_others(Request& request) {
  const bool is_wanted = request.receiver.wanted();
  const int partition = store_->is_spread() ? store_->partition_for(request) : 0;
  const BatchPart part(request, store_->place());
  RequestErrand& errand = *new RequestErrand(store_->clock(), request, 1);
  issue(errand, is_wanted,
        [&] { store_->issue(errand, request.command, static_cast<unsigned>(partition), part); });
}

// Has an errand issued, with a place among the replies where somebody waits for its own.
template <typename Issue>
void ServerEngine::issue(PlacedErrand& errand, bool is_wanted, Issue issue_it) {
  const ErrandHold hold(errand);
  if (is_wanted) replies_.push(errand);
  try {
    issue_it();
  } catch (...) {
    if (is_wanted) replies_.take_back(errand);
    throw;
  }
}

// A request that names no object, for it has no members: nothing is to be done.
void ServerEngine::answer(Request& request) {
  if (!request.receiver.wanted()) return;
  RequestErrand& errand = *new RequestErrand(store_->clock(), request, 1);
  const ErrandHold hold(errand);
  replies_.push(errand);
  errand.finish_with(0);
}

void ServerEngine::scan(Request& request) {
  if (!request.receiver.wanted()) return;
  ScanErrand& errand = *new ScanErrand(*store_, request);
  issue(errand, true, [&errand] { errand.ask(); });
}

std::int64_t ServerEngine::next_due() {
  return store_->is_first(session_) ? store_->next_due() : -1;
}

void ServerEngine::subscribe(const Request& request) {
  const std::string_view identity = request.identity;
  const std::string_view prefix = identity.substr(0, prefix_size(identity, request.level));
  std::vector<std::shared_ptr<RemoteSubscription>> made;
  try {
    made.reserve(request.subscribers.size());
    for (const Request::Subscriber& subscriber : request.subscribers) {
      auto subscription = std::make_shared<RemoteSubscription>();
      subscription->receiver = subscriber.receiver;
      subscription->session = &session_;
      subscription->number = next_number_++;
      subscription->db = request.db;
      subscription->prefix = prefix;
      subscription->tag = subscriber.tag;
      Notice end;
      end.type_code = VU_MOM_TYPE_SUBSCRIPTION_ENDED;
      end.db = request.db;
      end.tag = subscriber.tag;
      subscription->end = std::make_unique<EndDelivery>(subscriber.receiver, std::move(end));
      made.push_back(subscription);
      subscriptions_.emplace(subscription->number, subscription);
    }
    store_->begin(made);
  } catch (...) {
    for (const auto& subscription : made) subscriptions_.erase(subscription->number);
    throw;
  }
}

void ServerEngine::unsubscribe(const Request& request) {
  const std::string_view identity = request.identity;
  const std::string_view prefix = identity.substr(0, prefix_size(identity, request.level));
  // Those that have ended leave the list here: nobody else looks at it.
  std::erase_if(subscriptions_, [](const auto& entry) { return !entry.second->channel; });
  std::vector<std::shared_ptr<RemoteSubscription>> ending;
  for (const std::uint32_t tag : request.tags) {
    for (const auto& [number, one] : subscriptions_) {
      if (!one->is_ending && one->tag == tag && one->db == request.db &&
          one->receiver.type->id == request.type->id && one->prefix == prefix) {
        ending.push_back(one);
      }
    }
  }
  if (!ending.empty()) store_->end(ending);
}

void ServerEngine::close(const char* reason) noexcept {
  replies_.close(reason);
  for (const auto& [number, subscription] : subscriptions_) {
    if (!subscription->channel) continue;
    store_->drop(*subscription);
    subscription->end->set_time(store_->clock().calendar());
    subscription->end->fail(reason);
    session_.post(std::move(subscription->end));
  }
  subscriptions_.clear();
}

}  // namespace vu::store
