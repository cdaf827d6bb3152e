// The subscriptions to the objects of one type in one database, found by what they
// watch: a change asks once per level of its object, however many subscriptions exist.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "../identity.h"
#include "../subscription.h"

namespace vu::store {

class Watchers {
 public:
  // Throws std::bad_alloc with nothing changed.
  void add(const std::shared_ptr<Subscription>& subscription);
  void remove(const Subscription& subscription) noexcept;

  bool empty() const { return by_tag_.empty(); }
  std::size_t size() const;

  // Calls visit(tag) for every watched field.
  template <typename Visit>
  void for_each_field(Visit visit) const {
    for (auto entry = by_tag_.upper_bound(0); entry != by_tag_.end(); ++entry) visit(entry->first);
  }

  // Calls visit(subscription) for those to field `tag`, or with 0 to the whole, of this
  // object; the widest level first.
  template <typename Visit>
  void for_each(std::uint32_t tag, std::string_view identity, Visit visit) const {
    const auto watched = by_tag_.find(tag);
    if (watched == by_tag_.end()) return;
    std::size_t size = 0;
    while (true) {
      const auto group = watched->second.find(identity.substr(0, size));
      if (group != watched->second.end()) {
        for (const auto& subscription : group->second) visit(subscription);
      }
      if (size == identity.size()) return;
      size += prefix_size(identity.substr(size), 1);
    }
  }

  // Calls visit(subscription) for those to `tag` at exactly these key components.
  template <typename Visit>
  void for_each_at(std::uint32_t tag, std::string_view prefix, Visit visit) const {
    const auto watched = by_tag_.find(tag);
    if (watched == by_tag_.end()) return;
    const auto group = watched->second.find(prefix);
    if (group == watched->second.end()) return;
    for (const auto& subscription : group->second) visit(subscription);
  }

 private:
  struct Hash {
    using is_transparent = void;
    std::size_t operator()(std::string_view bytes) const {
      return std::hash<std::string_view>()(bytes);
    }
  };
  using Group = std::vector<std::shared_ptr<Subscription>>;
  using ByPrefix = std::unordered_map<std::string, Group, Hash, std::equal_to<>>;

  std::map<std::uint32_t, ByPrefix> by_tag_;
};

}  // namespace vu::store
