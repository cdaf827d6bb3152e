#include "watchers.h"

#include <algorithm>

namespace vu::store {

void Watchers::add(const std::shared_ptr<Subscription>& subscription) {
  try {
    by_tag_[subscription->tag][subscription->prefix].push_back(subscription);
  } catch (...) {
    remove(*subscription);  // groups that were made for it
    throw;
  }
}

void Watchers::remove(const Subscription& subscription) noexcept {
  const auto by_prefix = by_tag_.find(subscription.tag);
  if (by_prefix == by_tag_.end()) return;
  const auto entry = by_prefix->second.find(std::string_view(subscription.prefix));
  if (entry != by_prefix->second.end()) {
    Group& group = entry->second;
    group.erase(std::remove_if(group.begin(), group.end(),
                               [&](const auto& one) { return one.get() == &subscription; }),
                group.end());
    if (group.empty()) by_prefix->second.erase(entry);
  }
  if (by_prefix->second.empty()) by_tag_.erase(by_prefix);
}

std::size_t Watchers::size() const {
  std::size_t size = 0;
  for (const auto& [tag, by_prefix] : by_tag_) {
    for (const auto& [prefix, group] : by_prefix) size += group.size();
  }
  return size;
}

}  // namespace vu::store
