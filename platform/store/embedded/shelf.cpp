#include "shelf.h"

#include <algorithm>
#include <utility>

#include "../wire.h"

namespace vu::store {

Shelf::Shelf(Slab& slab, Lifetimes& lifetimes, std::int32_t db, const TypeInfo& type)
    : slab_(slab), lifetimes_(lifetimes), db_(db), type_name_(type.name) {
  for (const auto* key : type.keys) key_tags_.push_back(static_cast<std::uint32_t>(key->number()));
}

Shelf::~Shelf() {
  by_key_.for_each([this](Cell cell) {
    const Object gone = object(cell);
    delete gone.extra();
    if (gone.kind() != Kind::kSingle) delete gone.body();
    slab_.release(cell);
  });
}

Cell Shelf::find(std::string_view identity) const {
  const Cell* const found =
      by_key_.find(hash_of(identity), [&](Cell cell) { return object(cell).key() == identity; });
  return found == nullptr ? 0 : *found;
}

Cell Shelf::first_from(std::string_view identity, bool behind) const {
  const auto cursor = in_order_.lower_bound([&](Cell cell) {
    const int order = object(cell).key().compare(identity);
    return order == 0 && behind ? -1 : order;
  });
  return cursor.at_end() ? 0 : *cursor;
}

Cell Shelf::add(Kind kind, std::string_view identity, std::string_view value,
                std::unique_ptr<Extra>& extra, std::unique_ptr<Body>& body) {
  by_key_.prepare_insert([this](Cell cell) { return hash_of(object(cell).key()); });
  const Cell cell = Object::make(slab_, kind, identity, value, extra.get(), body.get());
  try {
    in_order_.insert([&](Cell other) { return object(other).key().compare(identity); }, cell);
  } catch (...) {
    slab_.release(cell);
    throw;
  }
  by_key_.insert(hash_of(identity), cell);
  if (extra) {
    extra->shelf = this;
    extra->object = cell;
  }
  static_cast<void>(extra.release());
  static_cast<void>(body.release());
  return cell;
}

Cell Shelf::set_value(Cell cell, std::string_view value) {
  const Object old = object(cell);
  const std::size_t size = old.block_size() - old.value().size() + value.size();
  if (Slab::same_cell(size, old.block_size())) {
    Object::overwrite_value(slab_.at(cell), value);  // the indexes need not know
    return cell;
  }
  const Cell changed = Object::make(slab_, Kind::kSingle, old.key(), value, old.extra(), nullptr);
  exchange(cell, changed);
  return changed;
}

Cell Shelf::ensure_extra(Cell cell) {
  const Object old = object(cell);
  if (old.extra() != nullptr) return cell;
  auto extra = std::make_unique<Extra>();
  const bool single = old.kind() == Kind::kSingle;
  const Cell changed =
      Object::make(slab_, old.kind(), old.key(), single ? old.value() : std::string_view(),
                   extra.get(), single ? nullptr : old.body());
  extra->shelf = this;
  static_cast<void>(extra.release());
  exchange(cell, changed);
  return changed;
}

// Puts a block in the place of another of the same identity, which is released.
void Shelf::exchange(Cell old_cell, Cell new_cell) noexcept {
  const std::string_view identity = object(new_cell).key();
  *by_key_.find(hash_of(identity), [&](Cell cell) { return cell == old_cell; }) = new_cell;
  in_order_.replace([&](Cell cell) { return object(cell).key().compare(identity); }, new_cell);
  slab_.release(old_cell);
  if (Extra* const extra = object(new_cell).extra()) extra->object = new_cell;
}

void Shelf::remove(Cell cell) noexcept {
  const Object gone = object(cell);
  in_order_.erase([&](Cell other) { return object(other).key().compare(gone.key()); });
  by_key_.erase(by_key_.find(hash_of(gone.key()), [&](Cell other) { return other == cell; }));
  if (Extra* const extra = gone.extra()) {
    lifetimes_.clear_all(*extra);
    delete extra;
  }
  if (gone.kind() != Kind::kSingle) delete gone.body();
  slab_.release(cell);
}

bool Shelf::value_carries(std::string_view value, std::uint32_t tag) const {
  // Key fields are part of the identity and not of the bytes.
  if (std::find(key_tags_.begin(), key_tags_.end(), tag) != key_tags_.end()) return true;
  return carries(value, tag);
}

bool Shelf::object_carries(Object object, std::uint32_t tag) const {
  switch (object.kind()) {
    case Kind::kSingle:
      return value_carries(object.value(), tag);
    case Kind::kHash:
      return object.body_as<HashBody>().find(tag) != nullptr;
    default:
      return false;
  }
}

}  // namespace vu::store
