// Sorted sets.
#include <cmath>
#include <cstdlib>
#include <memory>

#include "front.h"

namespace vu::store {
namespace {

// The object that the messages name, and their bytes as members. All of one type and
// identity, or nothing happens. Requires: count > 0.
void name_members(Request& request, std::int32_t db, const vu_mom_message* messages,
                  std::int32_t count) {
  name_object(request, db, messages[0]);
  for (std::int32_t i = 0; i < count; ++i) {
    request.members.add(member_bytes_at(request, messages[i]));
  }
  request.receiver.type = request.type;
}

std::int32_t of_member(vu_mom_handle* handle, Command which, std::int32_t db,
                       vu_mom_message message, const Receiver& receiver) noexcept {
  return command(handle, which, db, message, receiver,
                 [](Request& request, const google::protobuf::Message& named) {
                   request.value = member_bytes(named);
                 });
}

std::int32_t by_score(vu_mom_handle* handle, Command which, std::int32_t db, vu_mom_message message,
                      double min, double max, const Receiver& receiver) noexcept {
  return command(handle, which, db, message, receiver,
                 [&](Request& request, const google::protobuf::Message&) {
                   require(!std::isnan(min) && !std::isnan(max));
                   request.min = min;
                   request.max = max;
                 });
}

std::int32_t by_rank(vu_mom_handle* handle, Command which, std::int32_t db, vu_mom_message message,
                     std::int32_t start, std::int32_t stop, const Receiver& receiver) noexcept {
  return command(handle, which, db, message, receiver,
                 [&](Request& request, const google::protobuf::Message&) {
                   request.start = start;
                   request.stop = stop;
                 });
}

// zadd and zrem of no members name no object: nothing happens, and a reply that is
// asked for says so.
std::int32_t submit_nothing(vu_mom_handle* handle, Request& request, std::int32_t db) {
  require(db >= 0);
  request.db = db;
  return submit(handle, request);
}

}  // namespace
}  // namespace vu::store

using vu::store::by_rank;
using vu::store::by_score;
using vu::store::Command;
using vu::store::command;
using vu::store::name_members;
using vu::store::of_member;
using vu::store::reply_to;
using vu::store::Request;
using vu::store::require;
using vu::store::submit_nothing;

VU_STORE_EXPORT int32_t vu_mom_zadd(vu_mom_handle* handle, int32_t db, const double* scores,
                                    const vu_mom_message* messages, int32_t count,
                                    vu_mom_reply_cb callback, void* privdata) {
  VU_STORE_ENTRY();
  return vu::store::run_call(handle, [&] {
    Request request(Command::kZadd);
    request.receiver = reply_to(callback, privdata);
    require(count >= 0 && (count == 0 || (scores != nullptr && messages != nullptr)));
    if (count == 0) return submit_nothing(handle, request, db);
    for (int32_t i = 0; i < count; ++i) require(!std::isnan(scores[i]));
    name_members(request, db, messages, count);
    request.scores.reserve(static_cast<std::size_t>(count));
    for (int32_t i = 0; i < count; ++i) {
      request.scores.push_back(scores[i] == 0 ? 0 : scores[i]);  // no negative zero
    }
    return submit(handle, request);
  });
}

VU_STORE_EXPORT int32_t vu_mom_zrem(vu_mom_handle* handle, int32_t db, vu_mom_message* messages,
                                    int32_t count, vu_mom_reply_cb callback, void* privdata) {
  VU_STORE_ENTRY();
  const std::unique_ptr<vu_mom_message[], decltype(&std::free)> taken(messages, &std::free);
  return vu::store::run_call(handle, [&] {
    Request request(Command::kZrem);
    request.receiver = reply_to(callback, privdata);
    require(count >= 0 && (count == 0 || messages != nullptr));
    if (count == 0) return submit_nothing(handle, request, db);
    name_members(request, db, messages, count);
    return submit(handle, request);
  });
}

VU_STORE_EXPORT int32_t vu_mom_zcard(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                                     vu_mom_reply_cb callback, void* privdata) {
  VU_STORE_ENTRY();
  return command(handle, Command::kZcard, db, message, reply_to(callback, privdata));
}

VU_STORE_EXPORT int32_t vu_mom_zrank(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                                     vu_mom_reply_cb callback, void* privdata) {
  VU_STORE_ENTRY();
  return of_member(handle, Command::kZrank, db, message, reply_to(callback, privdata));
}

VU_STORE_EXPORT int32_t vu_mom_zscore(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                                      vu_mom_reply_cb callback, void* privdata) {
  VU_STORE_ENTRY();
  return of_member(handle, Command::kZscore, db, message, reply_to(callback, privdata));
}

VU_STORE_EXPORT int32_t vu_mom_zcount(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                                      double min, double max, vu_mom_reply_cb callback,
                                      void* privdata) {
  VU_STORE_ENTRY();
  return by_score(handle, Command::kZcount, db, message, min, max, reply_to(callback, privdata));
}

VU_STORE_EXPORT int32_t vu_mom_zrange(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                                      int32_t start, int32_t stop, vu_mom_reply_cb callback,
                                      void* privdata) {
  VU_STORE_ENTRY();
  return by_rank(handle, Command::kZrange, db, message, start, stop, reply_to(callback, privdata));
}

VU_STORE_EXPORT int32_t vu_mom_zrangebyscore(vu_mom_handle* handle, int32_t db,
                                             vu_mom_message message, double min, double max,
                                             vu_mom_reply_cb callback, void* privdata) {
  VU_STORE_ENTRY();
  return by_score(handle, Command::kZrangebyscore, db, message, min, max,
                  reply_to(callback, privdata));
}

VU_STORE_EXPORT int32_t vu_mom_zremrangebyscore(vu_mom_handle* handle, int32_t db,
                                                vu_mom_message message, double min, double max,
                                                vu_mom_reply_cb callback, void* privdata) {
  VU_STORE_ENTRY();
  return by_score(handle, Command::kZremrangebyscore, db, message, min, max,
                  reply_to(callback, privdata));
}

VU_STORE_EXPORT int32_t vu_mom_zremrangebyrank(vu_mom_handle* handle, int32_t db,
                                               vu_mom_message message, int32_t start, int32_t stop,
                                               vu_mom_reply_cb callback, void* privdata) {
  VU_STORE_ENTRY();
  return by_rank(handle, Command::kZremrangebyrank, db, message, start, stop,
                 reply_to(callback, privdata));
}
