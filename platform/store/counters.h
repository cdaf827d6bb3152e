// What a handle counts of what it does: plain numbers, added to where things happen.
#pragma once

#include <cstdint>

namespace vu::store {

// See vu_platform_stats for what they mean.
struct Counters {
  std::uint64_t commands = 0;
  std::uint64_t refused = 0;
  std::uint64_t replies = 0;
  std::uint64_t errors = 0;
  std::uint64_t events = 0;
  std::uint64_t missed = 0;
};

}  // namespace vu::store
