#include "request_errand.h"

#include <algorithm>
#include <new>
#include <string_view>
#include <utility>
#include <vector>

#include "protocol.h"
#include "replies.h"

namespace vu::store {

RequestErrand::RequestErrand(const Clock& clock, RequestHead& request, unsigned parts)
    : PlacedErrand(store::only_reads(request.command)),
      clock_(clock),
      request_(std::move(request)),
      parts_left_(parts) {
  if (!request_.receiver.wanted()) return;
  delivery_ = std::make_unique<LevelDelivery>(request_.receiver);
  if (parts > 1) merged_ = std::make_unique<Merged>();
}

void RequestErrand::finish(const Outcome& outcome) noexcept {
  --parts_left_;
  if (!has_place()) return;
  try {
    take(outcome);
  } catch (const std::bad_alloc&) {
    is_short_of_memory_ = true;
  }
  if (parts_left_ != 0) return;
  if (is_short_of_memory_) delivery_->fill({}, out_of_memory_reply(request_, clock_));
  put(std::move(delivery_), true);
}

void RequestErrand::finish_with(std::int64_t integer) noexcept {
  Notice notice = bare_reply(request_, clock_);
  notice.names_object = request_.type != nullptr;
  notice.content = Content::of_integer(integer);
  delivery_->fill({}, std::move(notice));
  put(std::move(delivery_), true);
}

void RequestErrand::take(const Outcome& outcome) {
  if (merged_) {
    merge(outcome);
    if (parts_left_ == 0 && !is_short_of_memory_) fill_merged();
    return;
  }
  describe(outcome, delivery_->last(), delivery_->identities());
  delivery_->last().identity = std::move(request_.identity);
}

void RequestErrand::describe(const Outcome& outcome, Notice& notice, ByteList& identities) {
  if (outcome.kind == Outcome::Kind::kReply) {
    decode_nameless(request_, *outcome.reply, clock_.calendar(), notice, identities);
    return;
  }
  std::string text = text_of(outcome, only_reads());
  notice.time_us = clock_.calendar();
  notice.db = request_.db;
  notice.end_mark = end_mark_of(request_.command);
  notice.names_object = true;
  notice.status = VU_MOM_FAILED;
  notice.error = std::move(text);
}

void RequestErrand::merge(const Outcome& outcome) {
  ByteList identities;
  Notice part;
  describe(outcome, part, identities);
  part.identity = request_.identity;
  for (std::size_t i = 0; i < identities.size(); ++i) merged_->identities.add(identities[i]);
  const std::int64_t count = merged_->last.count + part.count;
  if (part.status == VU_MOM_OK) {
    if (merged_->last.status == VU_MOM_OK) merged_->last = std::move(part);
  } else if (request_.command == Command::kPexpireFields && outcome.kind == Outcome::Kind::kReply) {
    merged_->is_refused = true;
    merged_->refusal = std::move(part.error);
  } else {
    merged_->last = std::move(part);
  }
  merged_->last.count = count;
}

// In the order of identities, as where one server has them all.
void RequestErrand::fill_merged() {
  Notice& last = merged_->last;
  if (merged_->is_refused && last.count == 0 && last.status == VU_MOM_OK) {
    last = Notice();
    last.time_us = clock_.calendar();
    last.db = request_.db;
    last.end_mark = end_mark_of(request_.command);
    last.names_object = true;
    last.identity = request_.identity;
    last.status = VU_MOM_FAILED;
    last.error = std::move(merged_->refusal);
  }
  std::vector<std::string_view> order;
  order.reserve(merged_->identities.size());
  std::size_t bytes = 0;
  for (std::size_t i = 0; i < merged_->identities.size(); ++i) {
    order.push_back(merged_->identities[i]);
    bytes += order.back().size();
  }
  std::sort(order.begin(), order.end());
  ByteList identities;
  identities.reserve(order.size(), bytes);
  for (const std::string_view identity : order) identities.add(identity);
  delivery_->fill(std::move(identities), std::move(last));
}

std::unique_ptr<Delivery> RequestErrand::complete(const char* reason) noexcept {
  delivery_->fill({}, bare_reply(request_, clock_));
  delivery_->fail(reason);
  return std::move(delivery_);
}

}  // namespace vu::store
