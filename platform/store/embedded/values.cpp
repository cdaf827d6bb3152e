// Single values.
#include <memory>
#include <string>

#include "../wire.h"
#include "run.h"

namespace vu::store {

void Run::get() {
  const Cell cell = find_kind(Kind::kSingle);
  if (cell == 0) return reply(Content());
  reply(Content::of_message(object(cell).value()), VU_MOM_TYPE_SET);
}

// The events of a single value that was `old_value` and is `value` from now on. incr of
// a stored object writes its counter and no other field.
void Run::tell_single(std::string_view old_value, bool existed, std::string_view value,
                      std::int32_t type_code) {
  const Shelf& on = shelf();
  if (request_.quiet || on.watchers.empty()) return;
  tell(type_code, [&] { return Content::of_message(value); });
  const bool counts = existed && type_code == VU_MOM_TYPE_INCR;
  on.watchers.for_each_field([&](std::uint32_t tag) {
    if (counts && tag != request_.type->counter.number) return;
    if (on.value_carries(value, tag)) {
      tell_field(tag, type_code, [&] { return Content::of_message(records_of(value, tag)); });
    } else if (existed && on.value_carries(old_value, tag)) {
      tell_field(tag, VU_MOM_TYPE_DELETED, [] { return Content(); });
    }
  });
}

// Stores request_.value; `existing` is the object under the name, or 0. Returns where it is now.
Cell Run::store_single(Cell existing, std::int32_t type_code) {
  if (!shelf().watchers.empty()) {
    tell_single(existing == 0 ? std::string_view() : object(existing).value(), existing != 0,
                request_.value, type_code);
  }
  if (existing == 0) {
    std::unique_ptr<Extra> extra;
    std::unique_ptr<Body> body;
    return shelf().add(Kind::kSingle, request_.identity, request_.value, extra, body);
  }
  return shelf().set_value(existing, request_.value);
}

void Run::incr() {
  const Cell cell = find_kind(Kind::kSingle);
  std::string value = cell == 0 ? without(request_.value, request_.type->counter.number)
                                : std::string(object(cell).value());
  std::int64_t count = 0;
  if (!increment(value, request_.type->counter, count)) {
    return reply_error("the counter is at its largest value");
  }
  request_.value = std::move(value);
  reply_integer(count);
  store_single(cell, VU_MOM_TYPE_INCR);
}

void Run::setnx() {
  if (find_kind(Kind::kSingle) != 0) return reply_integer(0);
  reply_integer(1);
  store_single(0, VU_MOM_TYPE_SET);
}

void Run::set() {
  const Cell cell = find_kind(Kind::kSingle);
  reply_integer(1);
  const Cell stored = store_single(cell, VU_MOM_TYPE_SET);
  if (cell == 0 || request_.keep_lifetime) return;
  if (Extra* const extra = object(stored).extra()) {
    store_.lifetimes().clear(*extra);
  }
}

void Run::setow() {
  Cell cell = find_kind(Kind::kSingle);
  if (cell == 0) {
    reply_integer(1);
    tell_single({}, false, request_.value, VU_MOM_TYPE_SET);
    auto extra = std::make_unique<Extra>();
    extra->owned = true;
    extra->owner = request_.owner;
    std::unique_ptr<Body> body;
    shelf().add(Kind::kSingle, request_.identity, request_.value, extra, body);
    return;
  }
  const Extra* const held = object(cell).extra();
  if (held != nullptr && held->owned && held->owner != request_.owner) {
    return reply_error("another owner holds the object");
  }
  cell = shelf().ensure_extra(cell);
  reply_integer(1);
  Extra& extra = *object(store_single(cell, VU_MOM_TYPE_SET)).extra();
  extra.owned = true;
  extra.owner = request_.owner;
  if (!request_.keep_lifetime) store_.lifetimes().clear(extra);
}

void Run::delow() {
  const Cell cell = find();
  if (cell == 0) return reply_integer(0);
  const Extra* const held = object(cell).extra();
  if (held == nullptr || !held->owned || held->owner != request_.owner) {
    return reply_error("the object is not this owner's");
  }
  reply_integer(1);
  if (!request_.quiet) store_.tell_gone(outbox_, shelf(), object(cell), VU_MOM_TYPE_DELETED);
  shelf().remove(cell);
}

void Run::del() {
  const Cell cell = find();
  if (cell == 0) return reply_integer(0);
  reply_integer(1);
  store_.tell_gone(outbox_, shelf(), object(cell), VU_MOM_TYPE_DELETED);
  shelf().remove(cell);
}

}  // namespace vu::store
