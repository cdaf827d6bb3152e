// Commands on a set of messages with scores.
#include "client/arrays.h"
#include "client/numbers.h"
#include "client/reply.h"
#include "client/request.h"
#include "client/status.h"
#include "commands/commands.h"
#include "commands/shapes.h"
#include "module/exceptions.h"
#include "module/imported_types.h"

namespace vu_mom {
namespace {

const ReplyPrefix on_zcard("on_zcard_");
const ReplyPrefix on_zrank("on_zrank_");
const ReplyPrefix on_zscore("on_zscore_");
const ReplyPrefix on_zcount("on_zcount_");
const ReplyPrefix on_zrange("on_zrange_");
const ReplyPrefix on_zrangebyscore("on_zrangebyscore_");

const MessageTuple list_is_none("scores or objs is None");
const MessageTuple lengths_differ("len(scores) != len(objs)");

vu_mom_message address_of_item(py::Borrowed list, std::size_t i) {
  const py::Owned obj = list_item(list, i);
  return message_address(obj);
}

void zadd(VuMom& client, const Arguments& in) {
  const auto [db_arg, scores, objs] = in.values<3>();
  check_list_or_none("scores", scores);
  check_list_or_none("objs", objs);
  if (scores.is_none() || objs.is_none()) raise(InputError, list_is_none);
  const std::size_t n = list_length(scores);
  if (n != list_length(objs)) raise(InputError, lengths_differ);
  if (n == 0) return;

  vu_mom_message* const addresses = allocate<vu_mom_message>(n);
  double* const native_scores = try_allocate<double>(n);
  if (native_scores == nullptr) {
    std::free(addresses);
    PyErr_NoMemory();
    throw py::PythonError();
  }
  for (std::size_t i = 0; i < n; ++i) {
    addresses[i] = address_of_item(objs, i);
    const py::Owned score = list_item(scores, i);
    native_scores[i] = to_double(score);
  }
  const std::int32_t db = to_int32(db_arg);
  const std::int32_t status = vu_mom_zadd(client.handle(), db, native_scores, addresses,
                                          static_cast<std::int32_t>(n), nullptr, nullptr);
  std::free(addresses);
  std::free(native_scores);
  accept(status);
}

// The store takes the array over, unlike that of zadd; it is called for an empty list too.
void zrem(VuMom& client, const Arguments& in) {
  const auto [db_arg, objs] = in.values<2>();
  check_list_or_none("objs", objs);
  const std::size_t n = list_to_clen(objs);
  vu_mom_message* const addresses = n == 0 ? nullptr : allocate<vu_mom_message>(n);
  for (std::size_t i = 0; i < n; ++i) addresses[i] = address_of_item(objs, i);
  const std::int32_t db = to_int32(db_arg);
  accept(
      vu_mom_zrem(client.handle(), db, addresses, static_cast<std::int32_t>(n), nullptr, nullptr));
}

void zcount(VuMom& client, const Arguments& in) {
  const auto [db_arg, obj, min_arg, max_arg, privdata] = in.values<5>();
  const double min = to_double(min_arg);
  const double max = to_double(max_arg);
  Request request(client, on_zcount, obj, privdata);
  request.result_class(types.ZcountResult);
  request.hand_over();
  const std::int32_t db = to_int32(db_arg);
  const vu_mom_message message = message_address(obj);
  accept(vu_mom_zcount(client.handle(), db, message, min, max, wrap_cb, request.context()));
}

void zrange(VuMom& client, const Arguments& in) {
  const auto [db_arg, obj, start_arg, stop_arg, privdata] = in.values<5>();
  const std::int32_t start = to_int32(start_arg);
  const std::int32_t stop = to_int32(stop_arg);
  Request request(client, on_zrange, obj, privdata);
  request.message_class_of(obj).result_class(types.ZrangeResult);
  request.hand_over();
  const std::int32_t db = to_int32(db_arg);
  const vu_mom_message message = message_address(obj);
  accept(vu_mom_zrange(client.handle(), db, message, start, stop, wrap_cb, request.context()));
}

void zrangebyscore(VuMom& client, const Arguments& in) {
  const auto [db_arg, obj, min_arg, max_arg, privdata] = in.values<5>();
  const double min = to_double(min_arg);
  const double max = to_double(max_arg);
  Request request(client, on_zrangebyscore, obj, privdata);
  request.message_class_of(obj).result_class(types.ZrangebyscoreResult);
  request.hand_over();
  const std::int32_t db = to_int32(db_arg);
  const vu_mom_message message = message_address(obj);
  accept(vu_mom_zrangebyscore(client.handle(), db, message, min, max, wrap_cb, request.context()));
}

// The bounds are converted before `db`.
void zremrangebyscore(VuMom& client, const Arguments& in) {
  const auto [db_arg, obj, min_arg, max_arg] = in.values<4>();
  const double min = to_double(min_arg);
  const double max = to_double(max_arg);
  const std::int32_t db = to_int32(db_arg);
  const vu_mom_message message = message_address(obj);
  accept(vu_mom_zremrangebyscore(client.handle(), db, message, min, max, nullptr, nullptr));
}

void zremrangebyrank(VuMom& client, const Arguments& in) {
  const auto [db_arg, obj, start_arg, stop_arg] = in.values<4>();
  const std::int32_t start = to_int32(start_arg);
  const std::int32_t stop = to_int32(stop_arg);
  const std::int32_t db = to_int32(db_arg);
  const vu_mom_message message = message_address(obj);
  accept(vu_mom_zremrangebyrank(client.handle(), db, message, start, stop, nullptr, nullptr));
}

constexpr Command kZadd{
    "vu_mom.VuMom.zadd",
    {"zadd", 3, {"db", "scores", "objs"}},
    zadd,
    "zadd($self, /, db, scores, objs)\n--\n\n"
    "Add the messages of the list `objs` to the sorted set under their key, or move them,\n"
    "each with the number of the list `scores` at its place. No reply.\n\n"
    "Raises InputError where a list is None or their lengths differ."};

constexpr Command kZrem{
    "vu_mom.VuMom.zrem",
    {"zrem", 2, {"db", "objs"}},
    zrem,
    "zrem($self, /, db, objs)\n--\n\n"
    "Remove the messages of the list `objs` from the sorted set under their key. No reply."};

constexpr Command kZcard{
    "vu_mom.VuMom.zcard",
    {"zcard", 3, {"db", "obj", "privdata"}},
    [](VuMom& client, const Arguments& in) {
      reply_with_result(client, in, on_zcard, types.ZcardResult, vu_mom_zcard);
    },
    "zcard($self, /, db, obj, privdata)\n--\n\n"
    "Count the members of the sorted set under the key of `obj`.\n\n"
    "The reply arrives at on_zcard_<package>_<message>(msg, p): msg.result is a ZcardResult."};

constexpr Command kZrank{
    "vu_mom.VuMom.zrank",
    {"zrank", 3, {"db", "obj", "privdata"}},
    [](VuMom& client, const Arguments& in) {
      reply_with_result(client, in, on_zrank, types.ZrankResult, vu_mom_zrank);
    },
    "zrank($self, /, db, obj, privdata)\n--\n\n"
    "Find the position of `obj` in the order of the sorted set under its key, from 0.\n\n"
    "The reply arrives at on_zrank_<package>_<message>(msg, p): msg.result is a ZrankResult,\n"
    "or None where `obj` is no member."};

constexpr Command kZscore{
    "vu_mom.VuMom.zscore",
    {"zscore", 3, {"db", "obj", "privdata"}},
    [](VuMom& client, const Arguments& in) {
      reply_with_result(client, in, on_zscore, types.ZscoreResult, vu_mom_zscore);
    },
    "zscore($self, /, db, obj, privdata)\n--\n\n"
    "Read the score of `obj` in the sorted set under its key.\n\n"
    "The reply arrives at on_zscore_<package>_<message>(msg, p): msg.result is a\n"
    "ZscoreResult, or None where `obj` is no member."};

constexpr Command kZcount{
    "vu_mom.VuMom.zcount",
    {"zcount", 5, {"db", "obj", "min", "max", "privdata"}},
    zcount,
    "zcount($self, /, db, obj, min, max, privdata)\n--\n\n"
    "Count the members with scores from `min` to `max`, both included.\n\n"
    "The reply arrives at on_zcount_<package>_<message>(msg, p): msg.result is a\n"
    "ZcountResult."};

constexpr Command kZrange{
    "vu_mom.VuMom.zrange",
    {"zrange", 5, {"db", "obj", "start", "stop", "privdata"}},
    zrange,
    "zrange($self, /, db, obj, start, stop, privdata)\n--\n\n"
    "Read the members from position `start` to position `stop`, both included, with their\n"
    "scores. Negative positions count from the end.\n\n"
    "The reply arrives at on_zrange_<package>_<message>(msg, p): msg.result is a\n"
    "ZrangeResult."};

constexpr Command kZrangebyscore{
    "vu_mom.VuMom.zrangebyscore",
    {"zrangebyscore", 5, {"db", "obj", "min", "max", "privdata"}},
    zrangebyscore,
    "zrangebyscore($self, /, db, obj, min, max, privdata)\n--\n\n"
    "Read the members with scores from `min` to `max`, both included, with their scores.\n\n"
    "The reply arrives at on_zrangebyscore_<package>_<message>(msg, p): msg.result is a\n"
    "ZrangebyscoreResult."};

constexpr Command kZremrangebyscore{
    "vu_mom.VuMom.zremrangebyscore",
    {"zremrangebyscore", 4, {"db", "obj", "min", "max"}},
    zremrangebyscore,
    "zremrangebyscore($self, /, db, obj, min, max)\n--\n\n"
    "Remove the members with scores from `min` to `max`, both included. No reply."};

constexpr Command kZremrangebyrank{
    "vu_mom.VuMom.zremrangebyrank",
    {"zremrangebyrank", 4, {"db", "obj", "start", "stop"}},
    zremrangebyrank,
    "zremrangebyrank($self, /, db, obj, start, stop)\n--\n\n"
    "Remove the members from position `start` to position `stop`, both included. No reply."};

}  // namespace

std::vector<PyMethodDef> sorted_set_methods() {
  return {method<kZadd>(),           method<kZrem>(),          method<kZcard>(),
          method<kZrank>(),          method<kZscore>(),        method<kZcount>(),
          method<kZrange>(),         method<kZrangebyscore>(), method<kZremrangebyscore>(),
          method<kZremrangebyrank>()};
}

}  // namespace vu_mom
