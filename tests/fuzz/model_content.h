// What the model's replies and events are made of.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "store_model.h"

namespace vu::fuzz {

// The first components of a name, `level` of them at most; and several as one.
std::vector<std::string> prefix_of(const Name& name, std::uint32_t level);
std::string joined(const std::vector<std::string>& components);

// Positions from start to stop, negative ones counted from the end.
template <typename Sequence>
Sequence part(const Sequence& whole, std::int64_t start, std::int64_t stop) {
  const auto size = static_cast<std::int64_t>(whole.size());
  if (start < 0) start += size;
  if (stop < 0) stop += size;
  Sequence chosen;
  for (std::int64_t i = 0; i < size; ++i) {
    if (i >= start && i <= stop) chosen.push_back(whole[static_cast<std::size_t>(i)]);
  }
  return chosen;
}

// Members with their scores.
using Pairs = std::vector<std::pair<double, std::string>>;

// Ascending by score, then by member.
Pairs ranked(const std::map<std::string, double>& scores);
// Those with a score from min to max.
Pairs between(const Pairs& pairs, double min, double max);

Content scored(const Pairs& pairs);
Content hash(const Name& name, const Fields& fields, const std::set<std::uint32_t>& tags);
Content messages(std::vector<std::string> all);
std::set<std::uint32_t> numbers_of(const Fields& fields);

}  // namespace vu::fuzz
