#include "clock.h"

#include <chrono>

namespace vu::store {

namespace {

template <typename SomeClock>
std::int64_t microseconds() {
  using std::chrono::duration_cast;
  return duration_cast<std::chrono::microseconds>(SomeClock::now().time_since_epoch()).count();
}

}  // namespace

std::int64_t Clock::steady() { return microseconds<std::chrono::steady_clock>(); }

std::int64_t Clock::now() const { return stopped_ ? now_ : steady(); }

std::int64_t Clock::calendar() const {
  return stopped_ ? calendar_ : microseconds<std::chrono::system_clock>();
}

void Clock::advance(std::int64_t by) {
  if (!stopped_) {
    now_ = now();
    calendar_ = calendar();
    stopped_ = true;
  }
  now_ += by;
  calendar_ += by;
}

}  // namespace vu::store
