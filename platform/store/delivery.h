// What waits in a session's queue: replies, events, ends of subscriptions. Engines may
// add kinds of their own, such as a scan that reads the store as it is delivered.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "byte_list.h"
#include "counters.h"
#include "notice.h"
#include "recycled.h"
#include "subscription.h"

namespace vu::store {

class Delivery {
 public:
  enum class Progress {
    kDone,   // delivered; drop it
    kMore,   // one of several was delivered
    kPause,  // one of several was delivered, and it is time to let others run
  };

  Delivery() = default;
  Delivery(const Delivery&) = delete;
  Delivery& operator=(const Delivery&) = delete;
  virtual ~Delivery();

  // Calls the callback, once, and counts that. Whatever goes wrong is told to the callback.
  virtual Progress step(Counters& counters) noexcept = 0;

  // Only an end with this reason is to be delivered any more, by one step. Events and
  // ends stay what they are.
  virtual void fail(const char* reason) noexcept = 0;

 private:
  friend class DeliveryQueue;
  std::unique_ptr<Delivery> next_;
};

// How many replies of one request are delivered without a pause.
inline constexpr std::uint32_t kBatch = 256;

// The queue: linking cannot fail.
class DeliveryQueue {
 public:
  DeliveryQueue() = default;
  DeliveryQueue(const DeliveryQueue&) = delete;
  DeliveryQueue& operator=(const DeliveryQueue&) = delete;
  ~DeliveryQueue() { clear(); }

  bool empty() const { return !first_; }
  std::size_t size() const { return size_; }
  void push_back(std::unique_ptr<Delivery> delivery) noexcept;
  void push_front(std::unique_ptr<Delivery> delivery) noexcept;
  std::unique_ptr<Delivery> pop_front() noexcept;
  void fail_all(const char* reason) noexcept;
  void clear() noexcept;

 private:
  std::unique_ptr<Delivery> first_;
  Delivery* last_ = nullptr;
  std::size_t size_ = 0;
};

// Calls `receiver` with the record of `notice`.
void deliver(const Receiver& receiver, const Notice& notice) noexcept;
// The same with a reply, which is counted.
void deliver_reply(const Receiver& receiver, const Notice& notice, Counters& counters) noexcept;

// One reply.
class ReplyDelivery : public Delivery {
 public:
  ReplyDelivery(const Receiver& receiver, Notice notice)
      : receiver_(receiver), notice_(std::move(notice)) {}
  Progress step(Counters& counters) noexcept override;
  void fail(const char* reason) noexcept override;

 private:
  Receiver receiver_;
  Notice notice_;
};

// The replies of a command on a level: one per object, then the last.
class LevelDelivery : public Delivery, public Recycled<LevelDelivery> {
 public:
  // `last` is the finishing reply; the others differ from it in identity, count and
  // end mark.
  LevelDelivery(const Receiver& receiver, ByteList identities, Notice last)
      : receiver_(receiver), identities_(std::move(identities)), last_(std::move(last)) {}
  // One that is filled before it is posted.
  explicit LevelDelivery(const Receiver& receiver) : receiver_(receiver) {}
  void fill(ByteList identities, Notice last) noexcept {
    identities_ = std::move(identities);
    last_ = std::move(last);
  }
  LevelDelivery(const LevelDelivery&) = delete;
  LevelDelivery& operator=(const LevelDelivery&) = delete;
  ~LevelDelivery() override { keep_text(std::move(last_.identity)); }
  // To be filled in place.
  ByteList& identities() { return identities_; }
  Notice& last() { return last_; }
  Progress step(Counters& counters) noexcept override;
  void fail(const char* reason) noexcept override;

 private:
  Receiver receiver_;
  ByteList identities_;
  std::size_t delivered_ = 0;
  Notice last_;
};

// One event of a subscription. Subscribers of one event share the notice.
class EventDelivery : public Delivery {
 public:
  EventDelivery(std::shared_ptr<Subscription> subscription, std::shared_ptr<const Notice> notice)
      : subscription_(std::move(subscription)), notice_(std::move(notice)) {}
  Progress step(Counters& counters) noexcept override;
  void fail(const char*) noexcept override {}

 private:
  std::shared_ptr<Subscription> subscription_;
  std::shared_ptr<const Notice> notice_;
};

// The end of a subscription. Holds a copy of its receiver: the subscription owns it.
class EndDelivery : public Delivery {
 public:
  EndDelivery(const Receiver& receiver, Notice notice)
      : receiver_(receiver), notice_(std::move(notice)) {}
  void set_time(std::int64_t time_us) { notice_.time_us = time_us; }
  Progress step(Counters& counters) noexcept override;
  void fail(const char* reason) noexcept override;

 private:
  Receiver receiver_;
  Notice notice_;
};

}  // namespace vu::store
