// The addresses that the library accepts: registered messages, and what it is
// delivering at the moment.
#pragma once

#include <cstdint>

namespace vu::store {

// A message being delivered: live for the life of this object. Throws std::bad_alloc.
class LiveMessage {
 public:
  explicit LiveMessage(std::intptr_t address);
  LiveMessage(LiveMessage&& other) noexcept : address_(other.address_) { other.address_ = 0; }
  LiveMessage(const LiveMessage&) = delete;
  LiveMessage& operator=(const LiveMessage&) = delete;
  LiveMessage& operator=(LiveMessage&&) = delete;
  ~LiveMessage();

 private:
  std::intptr_t address_;
};

bool is_live(std::intptr_t address);

}  // namespace vu::store
