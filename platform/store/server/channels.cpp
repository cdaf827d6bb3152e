#include "channels.h"

#include <algorithm>
#include <cinttypes>
#include <new>
#include <utility>

#include "../delivery.h"
#include "../session.h"

namespace vu::store {

void Channels::add(const Place& place, const std::shared_ptr<RemoteSubscription>& subscription) {
  const TypeInfo& type = *subscription->receiver.type;
  const bool of_fields = subscription->tag != 0;
  std::string name = channel_of(place, subscription->db, type, subscription->prefix, of_fields);
  auto found = by_name_.find(std::string_view(name));
  if (found == by_name_.end()) {
    auto made = std::make_shared<Channel>();
    made->name = name;
    made->db = subscription->db;
    made->type = &type;
    found = by_name_.emplace(std::move(name), std::move(made)).first;
  }
  subscription->channel = found->second;
  try {
    subscription->channel->by_tag[subscription->tag].push_back(subscription);
  } catch (...) {
    remove(*subscription);
    throw;
  }
}

void Channels::remove(RemoteSubscription& subscription) noexcept {
  const std::shared_ptr<Channel> channel = std::exchange(subscription.channel, nullptr);
  if (!channel) return;
  subscription.is_active = false;
  const auto entry = channel->by_tag.find(subscription.tag);
  if (entry != channel->by_tag.end()) {
    std::erase_if(entry->second, [&](const auto& one) { return one.get() == &subscription; });
    if (entry->second.empty()) channel->by_tag.erase(entry);
  }
  if (!channel->by_tag.empty()) return;
  stream_.unsubscribe(channel->name);
  by_name_.erase(by_name_.find(std::string_view(channel->name)));
}

void Channels::ask(Barrier& barrier) {
  for (const Barrier::Step& step : barrier.steps) {
    if (step.begins && step.subscription->channel) {
      stream_.subscribe(step.subscription->channel->name);
    }
  }
  barrier.mark = stream_.mark();
  barrier.is_asked = true;
}

void Channels::pass(const Barrier& barrier) noexcept {
  for (const Barrier::Step& step : barrier.steps) {
    RemoteSubscription& subscription = *step.subscription;
    if (!subscription.channel) continue;  // its handle was closed
    if (step.begins) {
      subscription.is_active = true;
      continue;
    }
    subscription.end->set_time(clock_.calendar());
    subscription.session->post(std::move(subscription.end));
    remove(subscription);
  }
}

void Channels::on_message(std::string_view name, std::string_view message) noexcept {
  const auto found = by_name_.find(name);
  if (found == by_name_.end()) return;  // of a subscription that has just ended
  try {
    hand_on(*found->second, message);
  } catch (const std::bad_alloc&) {
    owes_gap_ = true;
  }
}

void Channels::hand_on(const Channel& channel, std::string_view message) {
  std::vector<Notice> notices;
  for (const auto& [tag, group] : channel.by_tag) {
    if (std::none_of(group.begin(), group.end(), [](const auto& one) { return one->is_active; })) {
      continue;
    }
    notices.clear();
    if (!decode_event(*channel.type, channel.db, message, tag, notices)) owes_gap_ = true;
    for (Notice& notice : notices) {
      const auto shared = std::make_shared<const Notice>(std::move(notice));
      for (const std::shared_ptr<RemoteSubscription>& subscription : group) {
        if (!subscription->is_active) continue;
        subscription->session->post(std::make_unique<EventDelivery>(subscription, shared));
      }
    }
  }
}

void Channels::tell_gap() noexcept {
  owes_gap_ = true;
  repeat_gap();
}

void Channels::repeat_gap() noexcept {
  if (!owes_gap_) return;
  try {
    tell_gap_once();
    owes_gap_ = false;
  } catch (const std::bad_alloc&) {
    // Later, then.
  }
}

void Channels::tell_gap_once() {
  Notice notice;
  notice.status = VU_MOM_FAILED;
  notice.error = "events may be missing: the connection to the server was lost";
  notice.time_us = clock_.calendar();
  std::map<std::pair<std::int32_t, std::uint32_t>, std::shared_ptr<const Notice>> notices;
  DeliveryQueue made;
  std::vector<Session*> sessions;
  for (const auto& [name, channel] : by_name_) {
    for (const auto& [tag, group] : channel->by_tag) {
      std::shared_ptr<const Notice>& shared = notices[{channel->db, tag}];
      if (!shared) {
        notice.db = channel->db;
        notice.tag = tag;
        shared = std::make_shared<const Notice>(notice);
      }
      for (const std::shared_ptr<RemoteSubscription>& subscription : group) {
        if (!subscription->is_active) continue;
        sessions.push_back(subscription->session);
        made.push_back(std::make_unique<EventDelivery>(subscription, shared));
      }
    }
  }
  for (Session* session : sessions) session->post(made.pop_front());
}

void Channels::show(std::FILE* out) const {
  for (const auto& [name, channel] : by_name_) {
    std::size_t count = 0;
    for (const auto& [tag, group] : channel->by_tag) count += group.size();
    std::fprintf(out, "  db %" PRId32 " %s: %zu subscriptions to %s\n", channel->db,
                 channel->type->name.c_str(), count, name.c_str());
  }
}

}  // namespace vu::store
