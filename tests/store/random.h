// Random numbers that are the same in every run.
#pragma once

#include <cstdint>
#include <random>

namespace vu::store::test {

class Random {
 public:
  explicit Random(std::uint32_t seed) : engine_(seed) {}
  std::uint32_t operator()() { return static_cast<std::uint32_t>(engine_()); }

 private:
  std::mt19937 engine_;
};

}  // namespace vu::store::test
