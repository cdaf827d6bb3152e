// A hash table of small values that know their own key: open addressing, one byte of
// hash beside each slot, so that a miss seldom looks at a value.
//
// Growing is a step of its own (prepare_insert) that may throw; inserting after it, and
// erasing, cannot fail. That is how a command changes several structures or none.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

namespace vu::store {

template <typename T>
class HashIndex {
  static_assert(std::is_trivially_copyable_v<T>);

 public:
  HashIndex() = default;
  HashIndex(const HashIndex&) = delete;
  HashIndex& operator=(const HashIndex&) = delete;
  ~HashIndex() = default;
  HashIndex(HashIndex&& other) noexcept { swap(other); }
  HashIndex& operator=(HashIndex&& other) noexcept {
    HashIndex taken(std::move(other));
    swap(taken);
    return *this;
  }

  std::size_t size() const { return live_; }

  // The value with this hash for which equal(value); null where there is none. Valid
  // until the next prepare_insert.
  template <typename Equal>
  T* find(std::size_t hash, Equal equal) const {
    if (live_ == 0) return nullptr;
    const std::uint8_t tag = tag_of(hash);
    for (std::size_t i = start(hash);; i = (i + 1) & mask_) {
      if (tags_[i] == kEmpty) return nullptr;
      if (tags_[i] == tag && equal(slots_[i])) return &slots_[i];
    }
  }

  // Makes room for one insert. Throws std::bad_alloc with nothing changed.
  template <typename HashOf>
  void prepare_insert(HashOf hash_of) {
    prepare_inserts(1, hash_of);
  }

  // Makes room for `count` inserts.
  template <typename HashOf>
  void prepare_inserts(std::size_t count, HashOf hash_of) {
    if (used_ + count <= most()) return;
    std::size_t capacity = tags_ ? mask_ + 1 : kSmallest;
    // Not full to the brim afterwards, or the next insert would do this again.
    while ((live_ + count) > capacity / 8 * 5) {
      if (capacity > std::numeric_limits<std::size_t>::max() / 2 / (sizeof(T) + 1)) {
        throw std::bad_alloc();
      }
      capacity *= 2;
    }
    HashIndex grown;
    grown.tags_ = std::make_unique<std::uint8_t[]>(capacity);
    grown.slots_ = std::unique_ptr<T[]>(new T[capacity]);
    grown.mask_ = capacity - 1;
    for_each([&](const T& value) { grown.insert(hash_of(value), value); });
    *this = std::move(grown);
  }

  // Requires: prepare_insert, and no equal value inside.
  void insert(std::size_t hash, T value) noexcept {
    std::size_t i = start(hash);
    while (tags_[i] > kErased) i = (i + 1) & mask_;
    if (tags_[i] == kEmpty) ++used_;
    tags_[i] = tag_of(hash);
    slots_[i] = value;
    ++live_;
  }

  // Erases a value that find gave.
  void erase(const T* slot) noexcept {
    const auto i = static_cast<std::size_t>(slot - slots_.get());
    if (tags_[(i + 1) & mask_] == kEmpty) {
      tags_[i] = kEmpty;
      --used_;
    } else {
      tags_[i] = kErased;
    }
    if (--live_ == 0) *this = HashIndex();
  }

  template <typename Visit>
  void for_each(Visit visit) const {
    if (live_ == 0) return;
    for (std::size_t i = 0; i <= mask_; ++i) {
      if (tags_[i] > kErased) visit(slots_[i]);
    }
  }

  std::size_t bytes() const { return tags_ ? (mask_ + 1) * (sizeof(T) + 1) : 0; }

 private:
  void swap(HashIndex& other) noexcept {
    tags_.swap(other.tags_);
    slots_.swap(other.slots_);
    std::swap(mask_, other.mask_);
    std::swap(live_, other.live_);
    std::swap(used_, other.used_);
  }

  static constexpr std::uint8_t kEmpty = 0;
  static constexpr std::uint8_t kErased = 1;
  static constexpr std::size_t kSmallest = 8;

  // The low bits say where, the high bits are the tag: 2 to 255.
  static std::uint8_t tag_of(std::size_t hash) {
    const auto top =
        static_cast<std::uint32_t>(hash >> (std::numeric_limits<std::size_t>::digits - 16));
    return static_cast<std::uint8_t>(2 + top % 254);
  }
  std::size_t start(std::size_t hash) const { return hash & mask_; }
  std::size_t most() const { return tags_ ? (mask_ + 1) / 8 * 7 : 0; }

  std::unique_ptr<std::uint8_t[]> tags_;
  std::unique_ptr<T[]> slots_;
  std::size_t mask_ = 0;
  std::size_t live_ = 0;
  std::size_t used_ = 0;  // live and erased
};

}  // namespace vu::store
