#include "delivery.h"

#include <utility>

#include "record.h"
#include "thread_check.h"

namespace vu::store {

namespace {

// Makes the notice an error, keeping what it says of the request. The text is left out
// where there is no memory for it; the status says enough then.
void make_error(Notice& notice, const char* reason) noexcept {
  notice.status = VU_MOM_FAILED;
  notice.content = Content();
  try {
    notice.error = reason;
  } catch (const std::bad_alloc&) {
    notice.error.clear();
  }
}

}  // namespace

Subscription::Subscription() = default;
Subscription::~Subscription() = default;

Delivery::~Delivery() = default;

void DeliveryQueue::push_back(std::unique_ptr<Delivery> delivery) noexcept {
  std::unique_ptr<Delivery>& end = last_ != nullptr ? last_->next_ : first_;
  end = std::move(delivery);
  last_ = end.get();
  ++size_;
}

void DeliveryQueue::push_front(std::unique_ptr<Delivery> delivery) noexcept {
  if (last_ == nullptr) last_ = delivery.get();
  delivery->next_ = std::move(first_);
  first_ = std::move(delivery);
  ++size_;
}

std::unique_ptr<Delivery> DeliveryQueue::pop_front() noexcept {
  std::unique_ptr<Delivery> taken = std::move(first_);
  first_ = std::move(taken->next_);
  if (!first_) last_ = nullptr;
  --size_;
  return taken;
}

void DeliveryQueue::fail_all(const char* reason) noexcept {
  for (Delivery* delivery = first_.get(); delivery != nullptr; delivery = delivery->next_.get()) {
    delivery->fail(reason);
  }
}

void DeliveryQueue::clear() noexcept {
  while (!empty()) pop_front();  // one by one: a chain of destructors would be deep
}

void deliver(const Receiver& receiver, const Notice& notice) noexcept {
  Record record(receiver, notice);
  [[maybe_unused]] const CallingOut callback;
  if (receiver.reply != nullptr) {
    receiver.reply(nullptr, record.get(), receiver.privdata);
  } else if (receiver.stream != nullptr) {
    receiver.stream(nullptr, record.get(), receiver.privdata);
  }
}

void deliver_reply(const Receiver& receiver, const Notice& notice, Counters& counters) noexcept {
  ++counters.replies;
  if (notice.status != VU_MOM_OK) ++counters.errors;
  deliver(receiver, notice);
}

Delivery::Progress ReplyDelivery::step(Counters& counters) noexcept {
  deliver_reply(receiver_, notice_, counters);
  return Progress::kDone;
}

void ReplyDelivery::fail(const char* reason) noexcept {
  notice_.type_code = VU_MOM_TYPE_NONE;
  make_error(notice_, reason);
}

Delivery::Progress LevelDelivery::step(Counters& counters) noexcept {
  if (delivered_ == identities_.size()) {
    deliver_reply(receiver_, last_, counters);
    return Progress::kDone;
  }
  Notice one;
  one.type_code = last_.type_code;
  one.time_us = last_.time_us;
  one.db = last_.db;
  try {
    one.identity = identities_[delivered_];
    one.names_object = true;
  } catch (const std::bad_alloc&) {
    one.status = VU_MOM_NO_MEMORY;
  }
  ++delivered_;
  deliver_reply(receiver_, one, counters);
  return delivered_ % kBatch == 0 ? Progress::kPause : Progress::kMore;
}

void LevelDelivery::fail(const char* reason) noexcept {
  delivered_ = identities_.size();
  last_.type_code = VU_MOM_TYPE_NONE;
  make_error(last_, reason);
}

Delivery::Progress EventDelivery::step(Counters& counters) noexcept {
  // An event has an error where others may be missing, and nowhere else.
  ++(notice_->status == VU_MOM_OK ? counters.events : counters.missed);
  deliver(subscription_->receiver, *notice_);
  return Progress::kDone;
}

Delivery::Progress EndDelivery::step(Counters& counters) noexcept {
  ++counters.events;
  deliver(receiver_, notice_);
  return Progress::kDone;
}

void EndDelivery::fail(const char* reason) noexcept { make_error(notice_, reason); }

}  // namespace vu::store
