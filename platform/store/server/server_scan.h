// A scan under way: batches asked for one by one, the next while one is being delivered,
// so that neither the server nor this process ever holds many objects for it.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "../delivery.h"
#include "../notice.h"
#include "../request.h"
#include "reply_queue.h"

namespace vu::store {

class ScanBatch;
class ScanErrand;
class ServerStore;

// What the batches of one scan share.
struct Scan {
  Receiver receiver;
  Notice last;
  ScanErrand* errand = nullptr;     // null where no further batch can be had
  std::unique_ptr<ScanBatch> next;  // made before it is asked for
  std::size_t undone = 0;           // batches that will go on with the scan, or end it
  bool is_failed = false;           // only the end is to be delivered any more
  bool is_finished = false;         // it was

  void fail(const char* reason) noexcept;
};

class ScanBatch : public Delivery {
 public:
  explicit ScanBatch(std::shared_ptr<Scan> scan) : scan_(std::move(scan)) {}
  ScanBatch(const ScanBatch&) = delete;
  ScanBatch& operator=(const ScanBatch&) = delete;
  ~ScanBatch() override;

  // The objects, and whether the scan ends behind them.
  std::vector<Notice>& objects() { return objects_; }
  void set_last() noexcept { is_last_ = true; }
  bool is_last() const { return is_last_; }
  // From now on the scan counts on this batch.
  void count_on() noexcept;

  Progress step(Counters& counters) noexcept override;
  void fail(const char* reason) noexcept override { scan_->fail(reason); }

 private:
  Progress finish(Counters& counters) noexcept;

  std::shared_ptr<Scan> scan_;
  std::vector<Notice> objects_;
  std::size_t delivered_ = 0;
  bool is_last_ = false;
  bool is_begun_ = false;
  bool is_counted_on_ = false;
};

class ScanErrand final : public PlacedErrand {
 public:
  // Takes the request over. Throws std::bad_alloc.
  ScanErrand(ServerStore& store, Request& request);
  ScanErrand(const ScanErrand&) = delete;
  ScanErrand& operator=(const ScanErrand&) = delete;

  // Asks for the next batch. Throws std::bad_alloc, and then nothing was asked for.
  void ask();
  // No batch comes after what was put.
  void give_up() noexcept;

  void finish(const Outcome& outcome) noexcept override;

 private:
  ~ScanErrand() override;

  std::unique_ptr<Delivery> complete(const char* reason) noexcept override;
  void read(const Outcome& outcome, ScanBatch& batch);
  bool is_at_end() const;
  void send();

  ServerStore& store_;
  Request request_;
  std::shared_ptr<Scan> scan_;
  bool goes_on_;          // from partition to partition
  int partition_;         // where it is; -1: everywhere at once
  std::string position_;  // empty: at the start
};

}  // namespace vu::store
