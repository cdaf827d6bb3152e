#include "scan.h"

#include <new>
#include <utility>

#include "contents.h"

namespace vu::store {

Delivery::Progress ScanDelivery::step(Counters& counters) noexcept {
  if (!store_) return finish(counters);
  try {
    return deliver_next(counters);
  } catch (const std::bad_alloc&) {
    last_.status = VU_MOM_NO_MEMORY;
    return finish(counters);
  }
}

Delivery::Progress ScanDelivery::deliver_next(Counters& counters) {
  for (std::uint32_t expired = 0; expired < kBatch; ++expired) {
    const Cell cell =
        started_ ? shelf_->first_from(position_, true) : shelf_->first_from(prefix_, false);
    if (cell == 0) return finish(counters);
    const std::string_view key = shelf_->object(cell).key();
    if (!key.starts_with(prefix_)) return finish(counters);
    position_ = key;
    started_ = true;
    if (!store_->refresh(*shelf_, cell)) continue;

    const Object object = shelf_->object(cell);
    Notice notice = store_->notice_of(*shelf_, position_);
    notice.type_code = keys_only_ ? std::int32_t{VU_MOM_TYPE_INDEX} : code_of(object.kind());
    // Without any bytes a message is its key fields.
    notice.content = keys_only_ ? Content::of_message({}) : content_of(object);
    const bool pause = ++last_.count % kBatch == 0;
    deliver_reply(receiver_, notice, counters);
    return pause ? Progress::kPause : Progress::kMore;
  }
  return Progress::kPause;
}

Delivery::Progress ScanDelivery::finish(Counters& counters) {
  if (store_) last_.time_us = store_->calendar();
  deliver_reply(receiver_, last_, counters);
  return Progress::kDone;
}

void ScanDelivery::fail(const char* reason) noexcept {
  store_.reset();
  last_.status = VU_MOM_FAILED;
  try {
    last_.error = reason;
  } catch (const std::bad_alloc&) {
    last_.error.clear();
  }
}

}  // namespace vu::store
