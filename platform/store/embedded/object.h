// A stored object: one block of the slab, and what only some objects have beside it.
//
// Block: head, then the address of its Extra where it has one, then the address of its
// Body where it is no single value, then the identity, then the bytes of a single value.
#pragma once

#include <cstdint>
#include <cstring>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "../request.h"
#include "hash_index.h"
#include "ordered_index.h"
#include "slab.h"

namespace vu::store {

class Shelf;

enum class Kind : std::uint8_t { kSingle, kHash, kList, kSet, kSortedSet };

// "a single value", "a hash", ...
const char* name_of(Kind kind);

inline constexpr std::int64_t kNever = INT64_MAX;

// Lifetimes and the owner. Stays at its address while the object's block changes.
struct Extra {
  struct FieldDeadline {
    std::uint32_t tag;
    std::int64_t deadline;
  };

  Shelf* shelf = nullptr;
  Cell object = 0;
  std::int64_t deadline = kNever;  // of the object
  std::vector<FieldDeadline> fields;
  bool owned = false;
  std::int64_t owner = 0;
};

// What an object holds that is no single value.
struct Body {
  Body() = default;
  Body(const Body&) = delete;
  Body& operator=(const Body&) = delete;
  virtual ~Body();
  virtual std::size_t size() const = 0;
};

struct HashBody : Body {
  std::vector<Field> fields;  // ascending numbers
  std::size_t size() const override { return fields.size(); }
  Field* find(std::uint32_t number);
};

struct ListBody : Body {
  std::deque<std::string> elements;
  std::size_t size() const override { return elements.size(); }
};

// Members are blocks of the store's slab.
struct SetBody : Body {
  explicit SetBody(Slab& from) : slab(from) {}
  SetBody(const SetBody&) = delete;
  SetBody& operator=(const SetBody&) = delete;
  ~SetBody() override;
  std::size_t size() const override { return members.size(); }
  std::string_view bytes_of(Cell member) const;
  Cell make(std::string_view bytes);  // a block that is not yet in `members`
  Cell* find(std::string_view bytes) const;

  Slab& slab;
  HashIndex<Cell> members;
};

struct SortedSetBody : Body {
  explicit SortedSetBody(Slab& from) : slab(from) {}
  SortedSetBody(const SortedSetBody&) = delete;
  SortedSetBody& operator=(const SortedSetBody&) = delete;
  ~SortedSetBody() override;
  std::size_t size() const override { return members.size(); }
  double score_of(Cell member) const;
  std::string_view bytes_of(Cell member) const;
  Cell make(double score, std::string_view bytes);
  Cell* find(std::string_view bytes) const;
  // How `member` lies to (score, bytes) in the set's order.
  int compare(Cell member, double score, std::string_view bytes) const;

  Slab& slab;
  HashIndex<Cell> members;    // by bytes
  OrderedIndex<Cell> ranked;  // by score, then bytes
};

// Reads a block. Valid as long as the block is.
class Object {
 public:
  explicit Object(const char* block) : block_(block) { std::memcpy(&head_, block, sizeof(head_)); }

  Kind kind() const { return head_.kind; }
  Extra* extra() const { return head_.has_extra ? pointer<Extra>(sizeof(Head)) : nullptr; }
  // Requires: no single value.
  Body* body() const { return pointer<Body>(body_offset()); }
  template <typename SomeBody>
  SomeBody& body_as() const {
    return *static_cast<SomeBody*>(body());
  }
  std::string_view key() const { return {block_ + key_offset(), head_.key_size}; }
  // Requires: a single value.
  std::string_view value() const {
    return {block_ + key_offset() + head_.key_size, head_.value_size};
  }
  std::size_t block_size() const {
    return key_offset() + std::size_t{head_.key_size} + head_.value_size;
  }

  // A new block. Throws std::bad_alloc.
  static Cell make(Slab& slab, Kind kind, std::string_view key, std::string_view value,
                   Extra* extra, Body* body);
  // Gives the block of a single value other bytes. Requires: they fit.
  static void overwrite_value(char* block, std::string_view value);

 private:
  static constexpr std::size_t kPointerSize = sizeof(void*);

  struct Head {
    std::uint32_t key_size;
    std::uint32_t value_size;
    Kind kind;
    bool has_extra;
  };

  template <typename Pointee>
  Pointee* pointer(std::size_t offset) const {
    Pointee* pointer = nullptr;
    std::memcpy(&pointer, block_ + offset, kPointerSize);
    return pointer;
  }
  std::size_t body_offset() const { return sizeof(Head) + (head_.has_extra ? kPointerSize : 0); }
  std::size_t key_offset() const {
    return body_offset() + (head_.kind == Kind::kSingle ? 0 : kPointerSize);
  }

  const char* block_;
  Head head_;
};

std::size_t hash_of(std::string_view bytes);

}  // namespace vu::store
