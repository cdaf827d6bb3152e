// Commands on levels and on subscriptions, time, handles that go, and bad input.
#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <limits>

#include "engine_run.h"

namespace vu::fuzz {

void Run::scan(Handle& handle, const Known& message, bool keys_only) {
  const std::uint32_t level = this->level();
  Slot& made = slot(handle);
  const bool is_accepted = accepted(handle, [&] {
    return (keys_only ? vu_mom_scan_index : vu_mom_scan)(handle.raw, db_, message.address, level,
                                                         &on_stream, &made);
  });
  if (!is_accepted) return;
  made.request = std::make_shared<Request>();
  made.request->db = db_;
  made.request->on_level = true;
  made.request->end_mark = VU_MOM_END_SCAN;
  made.request->scan = handle.model->scan(db_, message, level);
  made.request->keys_only = keys_only;
  handle.waiting.push_back(made.request);
  check_told(handle);
}

void Run::levels(int op, Handle& handle, const Known& message) {
  Model& model = *handle.model;
  vu_mom_handle* const raw = handle.raw;
  const std::int32_t db = db_;
  const vu_mom_message at = message.address;
  if (op < 2) return scan(handle, message, op == 1);
  const std::uint32_t level = this->level();
  if (op == 2) {
    return ask_all(
        handle, message, VU_MOM_END_DEL_EXPIRE,
        [&] { return model.del_expire(db, message, level); },
        [&](auto cb, void* p) { return vu_mom_del_expire(raw, db, at, level, cb, p); });
  }
  if (op == 3) {
    return ask_all(
        handle, message, VU_MOM_END_PDEL, [&] { return model.pdel(db, message, level); },
        [&](auto cb, void* p) { return vu_mom_pdel(raw, db, at, level, cb, p); });
  }
  std::int32_t seconds = 0;
  std::int32_t microseconds = 0;
  const std::int64_t lifetime = this->lifetime(seconds, microseconds);
  if (op == 4) {
    return ask_all(
        handle, message, VU_MOM_END_PEXPIRE,
        [&] { return model.pexpire(db, message, level, lifetime); },
        [&](auto cb, void* p) {
          return vu_mom_pexpire(raw, db, at, level, seconds, microseconds, cb, p);
        });
  }
  std::vector<std::size_t> tags = this->tags(message);
  const bool one = op == 5 && !tags.empty();
  if (one) tags.resize(1);
  const auto count = static_cast<std::int32_t>(tags.size());
  ask_all(
      handle, message, VU_MOM_END_PEXPIRE_FIELD,
      [&] { return model.pexpire_fields(db, message, level, as_set(tags), lifetime); },
      [&](auto cb, void* p) {
        if (one) {
          return vu_mom_pexpire_field(raw, db, at, level, static_cast<std::int32_t>(tags[0]),
                                      seconds, microseconds, cb, p);
        }
        return vu_mom_pexpire_fields(raw, db, at, level, tags.data(), count, seconds, microseconds,
                                     cb, p);
      });
}

void Run::subscribe(Handle& handle, const Known& message, bool fields) {
  const std::uint32_t level = this->level();
  std::vector<std::size_t> watched{0};
  if (fields) watched = tags(message);
  std::vector<vu_mom_stream_cb> callbacks;
  std::vector<void*> privdata;
  std::vector<Slot*> made;
  for (std::size_t i = 0; i < watched.size(); ++i) {
    made.push_back(&slot(handle));
    callbacks.push_back(&on_stream);
    privdata.push_back(made.back());
  }
  const bool is_accepted = accepted(handle, [&] {
    if (!fields) {
      return vu_mom_subscribe(handle.raw, db_, message.address, level, &on_stream, privdata[0]);
    }
    return vu_mom_subscribe_field(handle.raw, db_, message.address, level, watched.data(),
                                  callbacks.data(), privdata.data(),
                                  static_cast<std::int32_t>(watched.size()));
  });
  if (!is_accepted) return;
  for (std::size_t i = 0; i < watched.size(); ++i) {
    made[i]->subscription = handle.model->subscribe(&handle, db_, message, level,
                                                    static_cast<std::uint32_t>(watched[i]));
    ++handle.subscriptions;
  }
}

void Run::unsubscribe(Handle& handle, const Known& message, bool fields) {
  const std::uint32_t level = this->level();
  std::vector<std::size_t> watched{0};
  if (fields) watched = tags(message);
  const bool is_accepted = accepted(handle, [&] {
    if (!fields) {
      return vu_mom_unsubscribe(handle.raw, db_, message.address, level, &on_stream, nullptr);
    }
    return vu_mom_unsubscribe_field(handle.raw, db_, message.address, level, watched.data(),
                                    nullptr, nullptr, static_cast<std::int32_t>(watched.size()));
  });
  if (is_accepted) handle.model->unsubscribe(&handle, db_, message, level, as_set(watched));
}

// What the store can see to make no sense: refused, with nothing done or delivered.
void Run::bad_input(Handle& handle, const Known& message) {
  vu_mom_handle* const raw = handle.raw;
  const std::int32_t db = db_;
  const vu_mom_message at = message.address;
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double number = 1;
  constexpr std::size_t kBadTags[] = {0, 999, std::size_t{1} << 31, SIZE_MAX};
  const std::size_t tag = in_.pick(kBadTags);
  std::int32_t flag = in_.flag() ? 4 : -1;
  const vu_mom_message other =
      message.name == groups()[0][0].name ? groups()[1][0].address : groups()[0][0].address;
  const vu_mom_message both[] = {at, other};
  const double scores[] = {1, 2};
  const vu_mom_stream_cb no_callback = nullptr;
  void* const no_privdata = nullptr;
  const vu_mom_stream_cb stream = &on_stream;
  const vu_mom_reply_cb cb = &on_reply;
  std::int32_t status = VU_MOM_OK;
  in_command_ = true;
  switch (in_.pick(20)) {
    case 0:
      status = vu_mom_get(raw, -1, at, cb, nullptr);
      break;
    case 1:
      status = vu_mom_set_ext(raw, db, &flag, at, cb, nullptr);
      break;
    case 2:
      status = vu_mom_get(raw, db, at + 1, cb, nullptr);
      break;
    case 3:
      status = vu_mom_hmset(raw, db, at, nullptr, 1, cb, nullptr);
      break;
    case 4:
      status = vu_mom_hmget(raw, db, at, &tag, 1, cb, nullptr);
      break;
    case 5:
      status = vu_mom_hmget(raw, db, at, &tag, -1, cb, nullptr);
      break;
    case 6:
      status = vu_mom_zcount(raw, db, at, nan, number, cb, nullptr);
      break;
    case 7:
      status = vu_mom_zremrangebyscore(raw, db, at, number, nan, cb, nullptr);
      break;
    case 8:
      status = vu_mom_zadd(raw, db, &nan, &at, 1, cb, nullptr);
      break;
    case 9:
      status = vu_mom_zadd(raw, db, scores, both, 2, cb, nullptr);
      break;
    case 10:
      status = vu_mom_zadd(raw, db, nullptr, both, 1, cb, nullptr);
      break;
    case 11: {
      auto* const array = static_cast<vu_mom_message*>(std::malloc(sizeof both));
      std::copy(std::begin(both), std::end(both), array);
      status = vu_mom_zrem(raw, db, array, 2, cb, nullptr);
      break;
    }
    case 12:
      status = vu_mom_linsert(raw, db, other, at, 0, cb, nullptr);
      break;
    case 13:
      status = vu_mom_linsert(raw, db, at, at, 2, cb, nullptr);
      break;
    case 14:
      status = vu_mom_subscribe(raw, db, at, 0, nullptr, nullptr);
      break;
    case 15:
      status = vu_mom_subscribe_field(raw, db, at, 0, &tag, &stream, &no_privdata, 1);
      break;
    case 16:
      status = vu_mom_subscribe_field(raw, db, at, 0, nullptr, &no_callback, &no_privdata, 1);
      break;
    case 17:
      status = vu_mom_pexpire_field(raw, db, at, 0, -static_cast<std::int32_t>(in_.byte()), 1, 0,
                                    cb, nullptr);
      break;
    case 18:
      status = vu_mom_zrem(raw, -1, nullptr, 0, cb, nullptr);
      break;
    default:
      status = vu_mom_get(raw, db, 0, cb, nullptr);
  }
  in_command_ = false;
  check(status == VU_MOM_BAD_INPUT, "bad input was accepted");
}

void Run::advance(Handle& handle) {
  constexpr std::int64_t kSteps[] = {
      500000, 1000000, 1500000, 4000000,
      0,      1,       499999,  static_cast<std::int64_t>(INT32_MAX) * 1000000};
  const std::int64_t step = in_.pick(kSteps);
  if (handle.closed) return;
  vu_platform_advance_clock(handle.raw, step);
  handle.model->advance(step);
  swept_ = false;
}

void Run::others(int op, Handle& handle, std::size_t number, const Known& message) {
  switch (op) {
    case 0:
    case 1:
      if (sweep()) subscribe(handle, message, op == 1);
      return;
    case 2:
    case 3:
      if (sweep()) unsubscribe(handle, message, op == 3);
      return;
    case 4:
      return ask(
          handle, &message, [&] { return handle.model->publish(db_, message); },
          [&](auto cb, void* p) {
            return vu_mom_publish(handle.raw, db_, message.address, cb, p);
          });
    case 5:
      return advance(handle);
    case 6:
      deliver(handle, static_cast<std::uint32_t>(in_.pick(4)));
      return;
    case 7:
      if (depth_ == 0) drive();
      return;
    case 8:
      if (sweep()) close(handle);
      return;
    case 9:
      if (sweep()) free(current_[number]);
      return;
    default:
      return bad_input(handle, message);
  }
}

}  // namespace vu::fuzz
