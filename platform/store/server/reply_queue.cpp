#include "reply_queue.h"

#include <utility>

namespace vu::store {

void PlacedErrand::put(std::unique_ptr<Delivery> delivery, bool is_last) noexcept {
  if (queue_ == nullptr) return;
  ready_ = std::move(delivery);
  is_last_ = is_last;
  if (queue_->first_ == this) queue_->post();
}

void PlacedErrand::leave() noexcept {
  if (queue_ == nullptr) return;
  ReplyQueue& queue = *queue_;
  queue.pop().release();
  queue.post();
}

void ReplyQueue::push(PlacedErrand& errand) noexcept {
  errand.hold();
  errand.queue_ = this;
  (first_ == nullptr ? first_ : last_->next_) = &errand;
  last_ = &errand;
  ++size_;
}

void ReplyQueue::take_back(PlacedErrand& errand) noexcept {
  PlacedErrand* before = nullptr;
  for (PlacedErrand* one = first_; one != &errand; one = one->next_) before = one;
  (before == nullptr ? first_ : before->next_) = nullptr;
  last_ = before;
  --size_;
  errand.queue_ = nullptr;
  errand.release();
}

PlacedErrand& ReplyQueue::pop() noexcept {
  PlacedErrand& errand = *first_;
  first_ = errand.next_;
  if (first_ == nullptr) last_ = nullptr;
  --size_;
  errand.queue_ = nullptr;
  errand.next_ = nullptr;
  return errand;
}

void ReplyQueue::post() noexcept {
  while (first_ != nullptr && first_->ready_) {
    const bool is_last = first_->is_last_;
    session_.post(std::move(first_->ready_));
    if (!is_last) return;
    pop().release();
  }
}

void ReplyQueue::close(const char* reason) noexcept {
  while (first_ != nullptr) {
    PlacedErrand& errand = pop();
    std::unique_ptr<Delivery> delivery = std::move(errand.ready_);
    if (delivery) {
      delivery->fail(reason);
    } else {
      delivery = errand.complete(reason);
    }
    if (delivery) session_.post(std::move(delivery));
    errand.release();
  }
}

}  // namespace vu::store
