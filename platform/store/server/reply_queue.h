// The replies of a handle in the order of its commands, whatever order their outcomes
// come in.
#pragma once

#include <cstddef>
#include <memory>

#include "../session.h"
#include "errand.h"

namespace vu::store {

class ReplyQueue;

// An errand with a place among the replies of its handle.
class PlacedErrand : public Errand {
 public:
  using Errand::Errand;

 protected:
  // Gives what is to be delivered at this errand's place; `is_last`: then the place is
  // given up. Does nothing where the handle is closed.
  void put(std::unique_ptr<Delivery> delivery, bool is_last) noexcept;
  bool has_place() const { return queue_ != nullptr; }
  // Gives the place up, as the first of its queue, where what was put is the last after all.
  void leave() noexcept;

  // The handle closes: what completes the request with an error, or null where what was
  // put already does so.
  virtual std::unique_ptr<Delivery> complete(const char* reason) noexcept = 0;

 private:
  friend class ReplyQueue;

  ReplyQueue* queue_ = nullptr;
  PlacedErrand* next_ = nullptr;
  std::unique_ptr<Delivery> ready_;
  bool is_last_ = false;
};

class ReplyQueue {
 public:
  explicit ReplyQueue(Session& session) : session_(session) {}
  ReplyQueue(const ReplyQueue&) = delete;
  ReplyQueue& operator=(const ReplyQueue&) = delete;
  ~ReplyQueue() = default;

  std::size_t size() const { return size_; }

  // The next place; holds the errand as long as it has it.
  void push(PlacedErrand& errand) noexcept;
  // Takes the last place back, whose request was refused after all.
  void take_back(PlacedErrand& errand) noexcept;

  // Completes what is not complete, in its order.
  void close(const char* reason) noexcept;

 private:
  friend class PlacedErrand;
  void post() noexcept;
  PlacedErrand& pop() noexcept;

  Session& session_;
  PlacedErrand* first_ = nullptr;
  PlacedErrand* last_ = nullptr;
  std::size_t size_ = 0;
};

}  // namespace vu::store
