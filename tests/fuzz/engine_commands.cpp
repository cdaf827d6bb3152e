// Commands on objects, and what commands take.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <limits>

#include "engine_content.h"
#include "engine_run.h"

namespace vu::fuzz {

std::uint32_t Run::level() {
  const std::uint32_t level = in_.byte() & 7;
  return level == 7 ? UINT32_MAX : level;
}

double Run::score() {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  const double scores[] = {0.0, 1.0, -1.5, 2.0, kInfinity, -kInfinity, -0.0, 1e300};
  return in_.pick(scores);
}

std::int64_t Run::lifetime(std::int32_t& seconds, std::int32_t& microseconds) {
  constexpr std::int32_t kLifetimes[][2] = {{1, 0}, {1, 500000}, {3, 0},        {0, 0},
                                            {0, 1}, {9, 0},      {-1, -500000}, {INT32_MAX, 0}};
  const auto& chosen = in_.pick(kLifetimes);
  seconds = chosen[0];
  microseconds = chosen[1];
  return std::int64_t{seconds} * 1000000 + microseconds;
}

std::vector<std::size_t> Run::tags(const Known& message) {
  const auto& numbers = types()[static_cast<std::size_t>(message.name->type)].numbers;
  const std::uint8_t mask = in_.byte();
  std::vector<std::size_t> tags;
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    if ((mask >> (i % 8) & 1) != 0) tags.push_back(numbers[i]);
  }
  if ((mask & 0xC0) == 0xC0 && !tags.empty()) tags.push_back(tags[0]);
  if ((mask & 0x80) != 0) std::reverse(tags.begin(), tags.end());
  return tags;
}

std::set<std::uint32_t> Run::as_set(const std::vector<std::size_t>& tags) {
  std::set<std::uint32_t> numbers;
  for (const std::size_t tag : tags) numbers.insert(static_cast<std::uint32_t>(tag));
  return numbers;
}

void Run::values(int op, Handle& handle, const Known& message) {
  Model& model = *handle.model;
  vu_mom_handle* const raw = handle.raw;
  const std::int32_t db = db_;
  const vu_mom_message at = message.address;
  switch (op) {
    case 0:
      return ask_about(handle, message, &Model::get, vu_mom_get);
    case 1:
      if (types()[static_cast<std::size_t>(message.name->type)].counter.number == 0) {
        return check(vu_mom_incr(raw, db, at, &on_reply, nullptr) == VU_MOM_BAD_INPUT, "incr");
      }
      return ask_about(handle, message, &Model::incr, vu_mom_incr);
    case 2:
      return ask(
          handle, &message, [&] { return model.setnx(db, message); },
          [&](auto cb, void* p) {
            return (options_ & 0x20 ? vu_mom_setnx : vu_mom_setnx_noreply)(raw, db, at, cb, p);
          });
    case 3: {
      std::int32_t flag = static_cast<std::int32_t>(in_.pick(4));
      return ask(
          handle, &message, [&] { return model.set(db, message, flag); },
          [&](auto cb, void* p) {
            return vu_mom_set_ext(raw, db, flag == 0 ? nullptr : &flag, at, cb, p);
          });
    }
    case 4:
    case 5: {
      constexpr std::int64_t kOwners[] = {0, 1, INT64_MIN, INT64_MAX};
      std::int32_t flag = static_cast<std::int32_t>(in_.pick(4));
      const std::int64_t owner = in_.pick(kOwners);
      if (op == 4) {
        return ask(
            handle, &message, [&] { return model.setow(db, message, owner, flag); },
            [&](auto cb, void* p) { return vu_mom_setow_ext(raw, db, &flag, at, cb, p, owner); });
      }
      return ask(
          handle, &message, [&] { return model.delow(db, message, owner, flag); },
          [&](auto cb, void* p) { return vu_mom_del_ow_ext(raw, db, &flag, at, cb, p, owner); });
    }
    default:
      return ask_about(handle, message, &Model::del, vu_mom_del);
  }
}

void Run::hashes(int op, Handle& handle, const Known& message) {
  Model& model = *handle.model;
  const std::int32_t db = db_;
  if (op == 0) {
    return ask(
        handle, &message, [&] { return model.hmget(db, message, {}); },
        [&](auto cb, void* p) { return vu_mom_hgetall(handle.raw, db, message.address, cb, p); });
  }
  const std::vector<std::size_t> tags = this->tags(message);
  const std::size_t* const array = tags.empty() ? nullptr : tags.data();
  const auto count = static_cast<std::int32_t>(tags.size());
  if (op == 1) {
    return ask(
        handle, &message, [&] { return model.hmget(db, message, as_set(tags)); },
        [&](auto cb, void* p) {
          return vu_mom_hmget(handle.raw, db, message.address, array, count, cb, p);
        });
  }
  const int code = op == 2   ? VU_MOM_TYPE_HMSET
                   : op == 3 ? VU_MOM_TYPE_HMSETNX
                             : VU_MOM_TYPE_HMUPDATE;
  const auto write = op == 2 ? vu_mom_hmset : op == 3 ? vu_mom_hmsetnx : vu_mom_hmupdate;
  ask(
      handle, &message, [&] { return model.write_fields(db, message, as_set(tags), code); },
      [&](auto cb, void* p) {
        return write(handle.raw, db, message.address, array, count, cb, p);
      });
}

void Run::lists(int op, Handle& handle, const Known& message) {
  Model& model = *handle.model;
  vu_mom_handle* const raw = handle.raw;
  const std::int32_t db = db_;
  const vu_mom_message at = message.address;
  switch (op) {
    case 0:
    case 1:
      return ask(
          handle, &message, [&] { return model.push(db, message, op == 0 ? 10 : 11); },
          [&](auto cb, void* p) {
            return (op == 0 ? vu_mom_lpush : vu_mom_rpush)(raw, db, at, cb, p);
          });
    case 2:
    case 3:
      return ask(
          handle, &message, [&] { return model.pop(db, message, op == 2 ? 12 : 13); },
          [&](auto cb, void* p) {
            return (op == 2 ? vu_mom_lpop : vu_mom_rpop)(raw, db, at, cb, p);
          });
    case 4:
      return ask_about(handle, message, &Model::llen, vu_mom_llen);
    case 5: {
      const std::int32_t position = in_.number();
      return ask(
          handle, &message, [&] { return model.lset(db, message, position); },
          [&](auto cb, void* p) { return vu_mom_lset(raw, db, at, position, cb, p); });
    }
    case 6: {
      const std::uint8_t small = in_.byte();
      const std::size_t count = small == 255 ? SIZE_MAX : small & 3;
      return ask(
          handle, &message, [&] { return model.lrem(db, message, count); },
          [&](auto cb, void* p) { return vu_mom_lrem(raw, db, at, count, cb, p); });
    }
    case 7: {
      const Group& group = this->group();
      const Known& pivot = in_.pick_of(group);
      const Known& element = in_.pick_of(group);
      const auto order = static_cast<std::int32_t>(in_.pick(2));
      return ask(
          handle, &element, [&] { return model.linsert(db, pivot, element, order); },
          [&](auto cb, void* p) {
            return vu_mom_linsert(raw, db, pivot.address, element.address, order, cb, p);
          });
    }
    default: {
      const std::int32_t start = in_.number();
      const std::int32_t stop = in_.number();
      return ask(
          handle, &message, [&] { return model.lrange(db, message, start, stop); },
          [&](auto cb, void* p) { return vu_mom_lrange(raw, db, at, start, stop, cb, p); });
    }
  }
}

void Run::sets(int op, Handle& handle, const Known& message) {
  switch (op) {
    case 0:
      return ask_about(handle, message, &Model::sadd, vu_mom_sadd);
    case 1:
      return ask_about(handle, message, &Model::srem, vu_mom_srem);
    case 2:
      return ask_about(handle, message, &Model::smembers, vu_mom_smembers);
    case 3:
      return ask_about(handle, message, &Model::scard, vu_mom_scard);
    default:
      return ask_about(handle, message, &Model::sismember, vu_mom_sismember);
  }
}

// zadd and zrem.
void Run::members(Handle& handle, bool add) {
  const Group& group = this->group();
  std::vector<const Message*> chosen;
  std::vector<vu_mom_message> addresses;
  std::vector<double> scores;
  for (std::size_t count = in_.pick(5); count > 0; --count) {
    const Known& one = in_.pick_of(group);
    chosen.push_back(&one);
    addresses.push_back(one.address);
    if (add) scores.push_back(score());
  }
  const Known* const named = chosen.empty() ? nullptr : &group[0];
  const auto count = static_cast<std::int32_t>(addresses.size());
  db_of_nothing_ = db_;
  if (add) {
    return ask(
        handle, named, [&] { return handle.model->zadd(db_, scores, chosen); },
        [&](auto cb, void* p) {
          return vu_mom_zadd(handle.raw, db_, count == 0 ? nullptr : scores.data(),
                             count == 0 ? nullptr : addresses.data(), count, cb, p);
        });
  }
  ask(
      handle, named, [&] { return handle.model->zrem(db_, chosen); },
      [&](auto cb, void* p) {
        // The store takes the array over.
        auto* const array =
            static_cast<vu_mom_message*>(std::malloc(sizeof(vu_mom_message) * addresses.size()));
        std::copy(addresses.begin(), addresses.end(), array);
        return vu_mom_zrem(handle.raw, db_, array, count, cb, p);
      });
}

void Run::sorted_sets(int op, Handle& handle, const Known& message) {
  Model& model = *handle.model;
  vu_mom_handle* const raw = handle.raw;
  const std::int32_t db = db_;
  const vu_mom_message at = message.address;
  const auto between = [&](auto low, auto high, auto ideal, auto real) {
    ask(
        handle, &message, [&] { return (model.*ideal)(db, message, low, high); },
        [&](auto cb, void* p) { return real(raw, db, at, low, high, cb, p); });
  };
  switch (op) {
    case 0:
      return ask_about(handle, message, &Model::zcard, vu_mom_zcard);
    case 1:
      return ask_about(handle, message, &Model::zrank, vu_mom_zrank);
    case 2:
      return ask_about(handle, message, &Model::zscore, vu_mom_zscore);
    default:
      break;
  }
  if (op < 6) {
    const double min = score();
    const double max = score();
    if (op == 3) return between(min, max, &Model::zcount, vu_mom_zcount);
    if (op == 4) return between(min, max, &Model::zrangebyscore, vu_mom_zrangebyscore);
    return between(min, max, &Model::zremrangebyscore, vu_mom_zremrangebyscore);
  }
  const std::int32_t start = in_.number();
  const std::int32_t stop = in_.number();
  if (op == 6) return between(start, stop, &Model::zrange, vu_mom_zrange);
  between(start, stop, &Model::zremrangebyrank, vu_mom_zremrangebyrank);
}

// One command: what, options, the message, and what else it takes.
void Run::command(int depth) {
  const std::uint8_t kept = options_;
  const std::int32_t kept_db = db_;
  const std::size_t op = in_.byte();
  options_ = in_.byte();
  // The first handle is the usual one, and so is the first database.
  const std::size_t number = (options_ & 3) == 3 ? 0 : options_ & 3;
  db_ = (options_ & 0x18) == 0x18 ? (options_ & 0x80 ? INT32_MAX : 1) : 0;
  Handle& handle = this->handle(number);
  const Known& message = this->message();
  if (tells()) {
    std::fprintf(stderr, "%*scommand %zu/%zu of handle %zu, db %d, type %d, options %02x\n",
                 2 * depth, "", op % 8, op / 8, number, static_cast<int>(db_), message.name->type,
                 static_cast<unsigned>(options_));
    show("  message", Content::of_message(message.bytes));
  }
  switch (op % 8) {
    case 0:
      values(static_cast<int>(op / 8 % 7), handle, message);
      break;
    case 1:
      hashes(static_cast<int>(op / 8 % 5), handle, message);
      break;
    case 2:
      lists(static_cast<int>(op / 8 % 9), handle, message);
      break;
    case 3:
      sets(static_cast<int>(op / 8 % 5), handle, message);
      break;
    case 4: {
      const std::size_t which = op / 8 % 11;
      if (which < 3) {
        members(handle, which != 2);
      } else {
        sorted_sets(static_cast<int>(which - 3), handle, message);
      }
      break;
    }
    case 5:
      levels(static_cast<int>(op / 8 % 7), handle, message);
      break;
    default:
      others(static_cast<int>(op / 8 % 11), handle, number, message);
  }
  if (depth == 0 && (options_ & 0x20) != 0) drive();
  options_ = kept;
  db_ = kept_db;
}

}  // namespace vu::fuzz
