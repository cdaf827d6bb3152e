// The deadlines of a store, earliest first: expiry costs what expires.
#pragma once

#include <cstdint>
#include <set>

#include "object.h"

namespace vu::store {

class Lifetimes {
 public:
  struct Due {
    std::int64_t deadline;
    Extra* extra;
    std::uint32_t tag;  // 0: the object

    bool operator<(const Due& other) const {
      if (deadline != other.deadline) return deadline < other.deadline;
      if (extra != other.extra) return std::less<Extra*>()(extra, other.extra);
      return tag - 1 < other.tag - 1;  // fields before their object
    }
  };
  // An entry made before it is used, so that using it cannot fail.
  using Ticket = std::set<Due>::node_type;

  static Ticket make_ticket() {
    std::set<Due> one;
    return one.extract(one.insert(Due{0, nullptr, 0}).first);
  }

  bool empty() const { return entries_.empty(); }
  std::size_t size() const { return entries_.size(); }
  const Due& earliest() const { return *entries_.begin(); }  // Requires: not empty.

  // Gives the object a deadline, in place of the one it may have.
  void set(Extra& extra, std::int64_t deadline, Ticket ticket) noexcept;
  // Gives a field one. Requires: room for it in extra.fields.
  void set_field(Extra& extra, std::uint32_t tag, std::int64_t deadline, Ticket ticket) noexcept;
  void clear(Extra& extra) noexcept;
  void clear_field(Extra& extra, std::uint32_t tag) noexcept;
  void clear_all(Extra& extra) noexcept;

 private:
  void insert(const Due& due, Ticket ticket) noexcept;

  std::set<Due> entries_;
};

}  // namespace vu::store
