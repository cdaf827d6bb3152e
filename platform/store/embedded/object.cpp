#include "object.h"

#include <algorithm>
#include <functional>
#include <limits>
#include <new>

namespace vu::store {

namespace {

// A member: its score where it is ranked, its size, its bytes.
constexpr std::size_t kSizeBytes = sizeof(std::uint32_t);

void write_bytes(char* to, std::string_view bytes) {
  const auto size = static_cast<std::uint32_t>(bytes.size());
  std::memcpy(to, &size, kSizeBytes);
  std::memcpy(to + kSizeBytes, bytes.data(), bytes.size());
}

std::string_view read_bytes(const char* from) {
  std::uint32_t size = 0;
  std::memcpy(&size, from, kSizeBytes);
  return {from + kSizeBytes, size};
}

}  // namespace

std::size_t hash_of(std::string_view bytes) { return std::hash<std::string_view>()(bytes); }

const char* name_of(Kind kind) {
  switch (kind) {
    case Kind::kSingle:
      return "a single value";
    case Kind::kHash:
      return "a hash";
    case Kind::kList:
      return "a list";
    case Kind::kSet:
      return "a set";
    case Kind::kSortedSet:
      return "a sorted set";
  }
  return "";
}

Body::~Body() = default;

Field* HashBody::find(std::uint32_t number) {
  const auto field =
      std::lower_bound(fields.begin(), fields.end(), number,
                       [](const Field& one, std::uint32_t sought) { return one.number < sought; });
  return field != fields.end() && field->number == number ? &*field : nullptr;
}

SetBody::~SetBody() {
  members.for_each([this](Cell member) { slab.release(member); });
}

std::string_view SetBody::bytes_of(Cell member) const { return read_bytes(slab.at(member)); }

Cell SetBody::make(std::string_view bytes) {
  const Cell cell = slab.allocate(kSizeBytes + bytes.size());
  write_bytes(slab.at(cell), bytes);
  return cell;
}

Cell* SetBody::find(std::string_view bytes) const {
  return members.find(hash_of(bytes), [&](Cell member) { return bytes_of(member) == bytes; });
}

SortedSetBody::~SortedSetBody() {
  members.for_each([this](Cell member) { slab.release(member); });
}

double SortedSetBody::score_of(Cell member) const {
  double score = 0;
  std::memcpy(&score, slab.at(member), sizeof(score));
  return score;
}

std::string_view SortedSetBody::bytes_of(Cell member) const {
  return read_bytes(slab.at(member) + sizeof(double));
}

Cell SortedSetBody::make(double score, std::string_view bytes) {
  const Cell cell = slab.allocate(sizeof(score) + kSizeBytes + bytes.size());
  char* const block = slab.at(cell);
  std::memcpy(block, &score, sizeof(score));
  write_bytes(block + sizeof(score), bytes);
  return cell;
}

Cell* SortedSetBody::find(std::string_view bytes) const {
  return members.find(hash_of(bytes), [&](Cell member) { return bytes_of(member) == bytes; });
}

int SortedSetBody::compare(Cell member, double score, std::string_view bytes) const {
  const double own = score_of(member);
  if (own < score) return -1;
  if (own > score) return 1;
  return bytes_of(member).compare(bytes);
}

Cell Object::make(Slab& slab, Kind kind, std::string_view key, std::string_view value, Extra* extra,
                  Body* body) {
  constexpr std::size_t kLargest = std::numeric_limits<std::uint32_t>::max();
  if (key.size() > kLargest || value.size() > kLargest) throw std::bad_alloc();
  const Head head{static_cast<std::uint32_t>(key.size()), static_cast<std::uint32_t>(value.size()),
                  kind, extra != nullptr};
  std::size_t size = sizeof(head) + key.size() + value.size();
  if (extra != nullptr) size += kPointerSize;
  if (kind != Kind::kSingle) size += kPointerSize;
  const Cell cell = slab.allocate(size);
  char* to = slab.at(cell);
  const auto append = [&to](const void* from, std::size_t bytes) {
    if (bytes != 0) std::memcpy(to, from, bytes);
    to += bytes;
  };
  append(&head, sizeof(head));
  if (extra != nullptr) append(&extra, kPointerSize);
  if (kind != Kind::kSingle) append(&body, kPointerSize);
  append(key.data(), key.size());
  append(value.data(), value.size());
  return cell;
}

void Object::overwrite_value(char* block, std::string_view value) {
  const Object old(block);
  Head head = old.head_;
  head.value_size = static_cast<std::uint32_t>(value.size());
  if (!value.empty())
    std::memcpy(block + old.key_offset() + head.key_size, value.data(), value.size());
  std::memcpy(block, &head, sizeof(head));
}

}  // namespace vu::store
