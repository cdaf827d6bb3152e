// The objects of one type in one database, found by identity and in its order.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "hash_index.h"
#include "lifetimes.h"
#include "object.h"
#include "ordered_index.h"
#include "slab.h"
#include "watchers.h"

namespace vu::store {

class Shelf {
 public:
  Shelf(Slab& slab, Lifetimes& lifetimes, std::int32_t db, const TypeInfo& type);
  Shelf(const Shelf&) = delete;
  Shelf& operator=(const Shelf&) = delete;
  ~Shelf();

  std::int32_t db() const { return db_; }
  const std::string& type_name() const { return type_name_; }
  std::size_t size() const { return by_key_.size(); }
  std::size_t index_bytes() const { return by_key_.bytes() + in_order_.bytes(); }

  Object object(Cell cell) const { return Object(slab_.at(cell)); }
  // The object, or 0; also one whose lifetime is over.
  Cell find(std::string_view identity) const;
  // The first object behind `identity` (or at it), in the order of identities; or 0.
  Cell first_from(std::string_view identity, bool behind) const;
  // Calls visit(cell) for the objects whose identities begin with `prefix`, in order.
  // visit returns false to stop and must not change the shelf.
  template <typename Visit>
  void for_each(std::string_view prefix, Visit visit) const {
    auto cursor =
        in_order_.lower_bound([&](Cell cell) { return object(cell).key().compare(prefix); });
    for (; !cursor.at_end(); cursor.advance()) {
      if (!object(*cursor).key().starts_with(prefix) || !visit(*cursor)) return;
    }
  }

  // Stores a new object. Body and extra become the object's. Throws std::bad_alloc with
  // nothing changed, `body` and `extra` still the caller's.
  // Requires: nothing under this identity.
  Cell add(Kind kind, std::string_view identity, std::string_view value,
           std::unique_ptr<Extra>& extra, std::unique_ptr<Body>& body);
  // Gives a single value other bytes. Its lifetime and owner stay. Returns its cell,
  // which may be another. Throws std::bad_alloc with nothing changed.
  Cell set_value(Cell cell, std::string_view value);
  // Makes the object have an Extra. Returns its cell, which may be another.
  Cell ensure_extra(Cell cell);
  void remove(Cell cell) noexcept;

  // Whether the object, as long as it lives, carries field `tag`.
  bool object_carries(Object object, std::uint32_t tag) const;
  bool value_carries(std::string_view value, std::uint32_t tag) const;

  Watchers watchers;

 private:
  void exchange(Cell old_cell, Cell new_cell) noexcept;

  Slab& slab_;
  Lifetimes& lifetimes_;
  std::int32_t db_;
  std::string type_name_;
  std::vector<std::uint32_t> key_tags_;
  HashIndex<Cell> by_key_;
  OrderedIndex<Cell> in_order_;
};

}  // namespace vu::store
