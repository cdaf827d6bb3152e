#include "store.h"

#include <algorithm>
#include <new>
#include <tuple>

namespace vu::store {

namespace {

std::map<std::string, std::weak_ptr<Store>>& stores() {
  static auto* const all = new std::map<std::string, std::weak_ptr<Store>>();
  return *all;
}

constexpr auto kNoContent = [] { return Content(); };

}  // namespace

std::shared_ptr<Store> Store::named(const std::string& name) {
  std::weak_ptr<Store>& entry = stores()[name];
  std::shared_ptr<Store> store = entry.lock();
  if (!store) {
    store = std::make_shared<Store>(name);
    entry = store;
  }
  return store;
}

Store::~Store() { stores().erase(name_); }

void Store::detach(Session& session) noexcept {
  sessions_.erase(std::remove(sessions_.begin(), sessions_.end(), &session), sessions_.end());
}

Shelf& Store::shelf(std::int32_t db, const TypeInfo& type) {
  if (last_shelf_ != nullptr && last_type_ == type.id && last_shelf_->db() == db) {
    return *last_shelf_;
  }
  const auto key = std::make_pair(db, type.id);
  auto known = shelves_.find(key);
  if (known == shelves_.end()) {
    known = shelves_.emplace(key, std::make_unique<Shelf>(slab_, lifetimes_, db, type)).first;
  }
  last_type_ = type.id;
  last_shelf_ = known->second.get();
  return *last_shelf_;
}

Cell Store::find(Shelf& shelf, std::string_view identity) {
  const Cell cell = shelf.find(identity);
  return cell != 0 && refresh(shelf, cell) ? cell : 0;
}

bool Store::refresh(Shelf& shelf, Cell cell) {
  const Extra* const extra = shelf.object(cell).extra();
  if (extra == nullptr) return true;
  const std::int64_t time = now();
  // What ended first is told first, fields before their object: as when it is swept.
  while (true) {
    const auto due = std::min_element(
        extra->fields.begin(), extra->fields.end(), [](const auto& one, const auto& other) {
          return std::tie(one.deadline, one.tag) < std::tie(other.deadline, other.tag);
        });
    if (due == extra->fields.end() || due->deadline > std::min(time, extra->deadline)) break;
    if (!expire_field(shelf, cell, due->tag)) return false;
  }
  if (extra->deadline > time) return true;
  expire(shelf, cell);
  return false;
}

Notice Store::notice_of(const Shelf& shelf, std::string_view identity) const {
  Notice notice;
  notice.time_us = calendar();
  notice.db = shelf.db();
  notice.names_object = true;
  notice.identity = identity;
  return notice;
}

void Store::tell_gone(Outbox& outbox, const Shelf& shelf, Object object, std::int32_t type_code) {
  if (shelf.watchers.empty()) return;
  tell(outbox, shelf, object.key(), 0, type_code, kNoContent);
  shelf.watchers.for_each_field([&](std::uint32_t tag) {
    if (shelf.object_carries(object, tag)) {
      tell(outbox, shelf, object.key(), tag, type_code, kNoContent);
    }
  });
}

void Store::expire(Shelf& shelf, Cell cell) {
  Outbox outbox;
  tell_gone(outbox, shelf, shelf.object(cell), VU_MOM_TYPE_NONE);
  shelf.remove(cell);
  outbox.post();
}

void Store::tell_field_expired(Outbox& outbox, const Shelf& shelf, Object object,
                               std::uint32_t tag) {
  if (shelf.watchers.empty()) return;
  tell(outbox, shelf, object.key(), tag, VU_MOM_TYPE_NONE, kNoContent);
  Notice notice = notice_of(shelf, object.key());
  notice.type_code = VU_MOM_TYPE_NONE;
  notice.tag = tag;  // tells it from the end of the object
  const auto shared = std::make_shared<const Notice>(std::move(notice));
  shelf.watchers.for_each(0, object.key(), [&](const std::shared_ptr<Subscription>& one) {
    outbox.add(*one->session, std::make_unique<EventDelivery>(one, shared));
  });
}

bool Store::drop_field(Shelf& shelf, Cell cell, std::uint32_t tag) noexcept {
  const Object object = shelf.object(cell);
  auto& fields = object.body_as<HashBody>().fields;
  Field* const field = object.body_as<HashBody>().find(tag);
  if (field == nullptr) return true;
  if (Extra* const extra = object.extra()) lifetimes_.clear_field(*extra, tag);
  fields.erase(fields.begin() + (field - fields.data()));
  if (!fields.empty()) return true;
  shelf.remove(cell);
  return false;
}

bool Store::expire_field(Shelf& shelf, Cell cell, std::uint32_t tag) {
  Outbox outbox;
  tell_field_expired(outbox, shelf, shelf.object(cell), tag);
  const bool stays = drop_field(shelf, cell, tag);
  outbox.post();
  return stays;
}

void Store::deadline_added(std::int64_t deadline) noexcept {
  if (lifetimes_.earliest().deadline < deadline) return;
  for (Session* session : sessions_) session->wake();
}

void Store::set_deadline(Extra& extra, std::int64_t deadline, Lifetimes::Ticket ticket) noexcept {
  lifetimes_.set(extra, deadline, std::move(ticket));
  deadline_added(deadline);
}

void Store::set_field_deadline(Extra& extra, std::uint32_t tag, std::int64_t deadline,
                               Lifetimes::Ticket ticket) noexcept {
  lifetimes_.set_field(extra, tag, deadline, std::move(ticket));
  deadline_added(deadline);
}

void Store::expire_due(std::size_t most) noexcept {
  if (lifetimes_.empty()) return;
  const std::int64_t time = now();
  try {
    for (; most > 0 && !lifetimes_.empty(); --most) {
      const Lifetimes::Due due = lifetimes_.earliest();
      if (due.deadline > time) return;
      if (due.tag == 0) {
        expire(*due.extra->shelf, due.extra->object);
      } else {
        expire_field(*due.extra->shelf, due.extra->object, due.tag);
      }
    }
  } catch (const std::bad_alloc&) {
    // What is due stays due; nobody sees it meanwhile.
  }
}

std::int64_t Store::next_due() const {
  if (lifetimes_.empty()) return -1;
  const std::int64_t left = lifetimes_.earliest().deadline - now();
  if (left <= 0) return 0;
  // A stopped clock moves by hand, and wakes then.
  return clock_.stopped() ? -1 : left;
}

void Store::advance_clock(std::int64_t microseconds) {
  clock_.advance(microseconds);
  for (Session* session : sessions_) session->wake();
}

}  // namespace vu::store
