// Stored objects as what replies and events carry.
#pragma once

#include <cstdint>
#include <vector>

#include "../notice.h"
#include "../request.h"
#include "object.h"

namespace vu::store {

// The type code of a reply that carries objects of this kind.
std::int32_t code_of(Kind kind);

// All that an object holds.
Content content_of(const Object& object);

// Fields with their records; the tags are all the fields named here.
Content content_of(const std::vector<Field>& fields);

// Members of a sorted set with their scores.
Content content_of(const SortedSetBody& set, const std::vector<Cell>& members);

// The elements of a list between two positions. Requires: first + count elements.
Content content_of(const ListBody& list, std::size_t first, std::size_t count);

// A range of positions as users give it, in a sequence of `size`.
struct Range {
  std::size_t first = 0;
  std::size_t count = 0;
};
// Inclusive; negative positions count from the end; what lies outside is left out.
Range range_of(std::int32_t start, std::int32_t stop, std::size_t size);

}  // namespace vu::store
