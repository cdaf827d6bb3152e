// One embedded store: databases of shelves, and what happens to them by itself. Handles
// of one name share it; it goes when the last of them is closed.
#pragma once

#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "../clock.h"
#include "../notice.h"
#include "../session.h"
#include "lifetimes.h"
#include "outbox.h"
#include "shelf.h"
#include "slab.h"

namespace vu::store {

class Store {
 public:
  // The store of this name in the process. Throws std::bad_alloc.
  static std::shared_ptr<Store> named(const std::string& name);

  explicit Store(std::string name) : name_(std::move(name)) {}
  Store(const Store&) = delete;
  Store& operator=(const Store&) = delete;
  ~Store();

  void attach(Session& session) { sessions_.push_back(&session); }
  void detach(Session& session) noexcept;

  // The objects of a type in a database; made where there are none.
  Shelf& shelf(std::int32_t db, const TypeInfo& type);
  // The object, unless its lifetime is over: then it expires now. Fields whose lifetime
  // is over have expired after this as well. 0: there is none.
  Cell find(Shelf& shelf, std::string_view identity);
  // Lets what is due on this object expire. False where the object is gone by that.
  bool refresh(Shelf& shelf, Cell cell);

  // Adds the event to the outbox, for the object's subscribers at all their levels, or
  // with a tag for those to this field. `content()` is called where there are any.
  // Returns how many.
  template <typename MakeContent>
  std::size_t tell(Outbox& outbox, const Shelf& shelf, std::string_view identity, std::uint32_t tag,
                   std::int32_t type_code, MakeContent content) {
    std::shared_ptr<Notice> notice;
    std::size_t told = 0;
    shelf.watchers.for_each(tag, identity, [&](const std::shared_ptr<Subscription>& subscription) {
      if (!notice) {
        notice = std::make_shared<Notice>(notice_of(shelf, identity));
        notice->type_code = type_code;
        notice->tag = tag;
        notice->content = content();
      }
      outbox.add(*subscription->session, std::make_unique<EventDelivery>(subscription, notice));
      ++told;
    });
    return told;
  }
  // Tells that the object is gone, it and each watched field that it carries.
  void tell_gone(Outbox& outbox, const Shelf& shelf, Object object, std::int32_t type_code);

  // Tells that a field has expired: those who watch it, and with its tag those who watch
  // the whole object.
  void tell_field_expired(Outbox& outbox, const Shelf& shelf, Object object, std::uint32_t tag);
  // Takes a field from a hash, which goes with its last one. Returns whether the object
  // is still there.
  bool drop_field(Shelf& shelf, Cell cell, std::uint32_t tag) noexcept;

  // A notice about an object, now.
  Notice notice_of(const Shelf& shelf, std::string_view identity) const;

  // Gives deadlines. A deadline earlier than all others wakes who waits for the clock.
  void set_deadline(Extra& extra, std::int64_t deadline, Lifetimes::Ticket ticket) noexcept;
  void set_field_deadline(Extra& extra, std::uint32_t tag, std::int64_t deadline,
                          Lifetimes::Ticket ticket) noexcept;
  Lifetimes& lifetimes() { return lifetimes_; }

  // Lets at most `most` due objects and fields expire.
  void expire_due(std::size_t most) noexcept;
  std::int64_t next_due() const;
  void advance_clock(std::int64_t microseconds);
  std::int64_t now() const { return clock_.now(); }
  std::int64_t calendar() const { return clock_.calendar(); }

  void show(std::FILE* out) const;
  Slab& slab() { return slab_; }

 private:
  void expire(Shelf& shelf, Cell cell);
  // Returns whether the object is still there.
  bool expire_field(Shelf& shelf, Cell cell, std::uint32_t tag);
  void deadline_added(std::int64_t deadline) noexcept;

  std::string name_;
  Clock clock_;
  Slab slab_;
  Lifetimes lifetimes_;
  std::map<std::pair<std::int32_t, std::uint32_t>, std::unique_ptr<Shelf>> shelves_;
  Shelf* last_shelf_ = nullptr;  // that was asked for, of type last_type_
  std::uint32_t last_type_ = 0;
  std::vector<Session*> sessions_;
};

}  // namespace vu::store
