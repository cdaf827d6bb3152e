// The two times a store needs: a steady one for lifetimes, the calendar's for records.
#pragma once

#include <cstdint>

namespace vu::store {

class Clock {
 public:
  // Microseconds that never go back.
  std::int64_t now() const;
  // Microseconds since 1970, UTC.
  std::int64_t calendar() const;

  // As now(), whether it is stopped or not: for waiting.
  static std::int64_t steady();

  // For tests: stops the clock on the first call and moves it.
  void advance(std::int64_t by);  // microseconds
  bool stopped() const { return stopped_; }

 private:
  bool stopped_ = false;
  std::int64_t now_ = 0;
  std::int64_t calendar_ = 0;
};

}  // namespace vu::store
