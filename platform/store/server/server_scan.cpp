#include "server_scan.h"

#include <new>
#include <utility>

#include "protocol.h"
#include "replies.h"
#include "server_store.h"

namespace vu::store {

void Scan::fail(const char* reason) noexcept {
  is_failed = true;
  last.status = VU_MOM_FAILED;
  try {
    last.error = reason;
  } catch (const std::bad_alloc&) {
    last.error.clear();
  }
}

// ---- Batches -----------------------------------------------------------------------

ScanBatch::~ScanBatch() {
  if (is_counted_on_) --scan_->undone;
}

void ScanBatch::count_on() noexcept {
  is_counted_on_ = true;
  ++scan_->undone;
}

Delivery::Progress ScanBatch::finish(Counters& counters) noexcept {
  scan_->is_finished = true;
  deliver_reply(scan_->receiver, scan_->last, counters);
  return Progress::kDone;
}

Delivery::Progress ScanBatch::step(Counters& counters) noexcept {
  Scan& scan = *scan_;
  if (scan.is_finished) return Progress::kDone;
  if (scan.is_failed) return finish(counters);
  if (!std::exchange(is_begun_, true) && !is_last_) {
    try {
      scan.errand->ask();
    } catch (const std::bad_alloc&) {
      scan.last.status = VU_MOM_NO_MEMORY;
      scan.last.error = "out of memory";
      is_last_ = true;
      scan.errand->give_up();
    }
  }
  if (delivered_ == objects_.size()) return is_last_ ? finish(counters) : Progress::kDone;

  const bool pause = ++scan.last.count % kBatch == 0;
  deliver_reply(scan.receiver, objects_[delivered_++], counters);
  if (pause) return Progress::kPause;
  // One that was failed in its last callback has the end still to deliver.
  const bool is_done = delivered_ == objects_.size() && !is_last_ && !scan.is_failed;
  return is_done ? Progress::kDone : Progress::kMore;
}

// ---- Asking for them ----------------------------------------------------------------

ScanErrand::ScanErrand(ServerStore& store, Request& request)
    : PlacedErrand(true),
      store_(store),
      request_(std::move(request)),
      scan_(std::make_shared<Scan>()),
      goes_on_(store.is_spread() && store.partition_for(request_) < 0),
      partition_(goes_on_ ? 0 : store.partition_for(request_)) {
  scan_->receiver = request_.receiver;
  scan_->errand = this;
  scan_->last = bare_reply(request_, store.clock());
}

ScanErrand::~ScanErrand() { scan_->errand = nullptr; }

void ScanErrand::send() {
  store_.issue(*this, static_cast<unsigned>(partition_ < 0 ? 0 : partition_),
               encode_scan(request_, store_.place(), partition_, position_, kBatch));
}

void ScanErrand::ask() {
  scan_->next = std::make_unique<ScanBatch>(scan_);
  try {
    send();
  } catch (...) {
    scan_->next.reset();
    throw;
  }
}

void ScanErrand::give_up() noexcept { leave(); }

bool ScanErrand::is_at_end() const {
  return position_.empty() && (!goes_on_ || partition_ + 1 == static_cast<int>(kPartitions));
}

// Fills the batch, or makes it the end that says why not.
void ScanErrand::read(const Outcome& outcome, ScanBatch& batch) {
  if (outcome.kind != Outcome::Kind::kReply) {
    scan_->last.error = text_of(outcome, true);
    scan_->last.status = VU_MOM_FAILED;
    return batch.set_last();
  }
  Notice failed;
  std::string position;
  if (!decode_scan(request_, *outcome.reply, store_.clock().calendar(), batch.objects(), position,
                   failed)) {
    scan_->last.status = failed.status;
    scan_->last.error = std::move(failed.error);
    return batch.set_last();
  }
  position_ = std::move(position);
  if (is_at_end()) return batch.set_last();
  if (position_.empty()) ++partition_;
}

void ScanErrand::finish(const Outcome& outcome) noexcept {
  if (!has_place()) return;
  std::unique_ptr<ScanBatch> batch = std::move(scan_->next);
  bool is_last = false;
  try {
    read(outcome, *batch);
    is_last = batch->is_last();
    if (batch->objects().empty() && !is_last) {  // nothing there: on to where something is
      send();
      scan_->next = std::move(batch);
      return;
    }
  } catch (const std::bad_alloc&) {
    batch->objects().clear();
    batch->set_last();
    is_last = true;
    scan_->last.status = VU_MOM_NO_MEMORY;
    scan_->last.error = "out of memory";
  }
  if (is_last) scan_->last.time_us = store_.clock().calendar();
  batch->count_on();
  put(std::move(batch), is_last);
}

std::unique_ptr<Delivery> ScanErrand::complete(const char* reason) noexcept {
  scan_->fail(reason);
  return scan_->undone > 0 ? nullptr : std::move(scan_->next);
}

}  // namespace vu::store
