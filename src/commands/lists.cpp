// Commands on a list of messages.
#include "client/numbers.h"
#include "client/reply.h"
#include "client/request.h"
#include "client/status.h"
#include "commands/commands.h"
#include "commands/shapes.h"
#include "module/imported_types.h"

namespace vu_mom {
namespace {

const ReplyPrefix on_lpop("on_lpop_");
const ReplyPrefix on_rpop("on_rpop_");
const ReplyPrefix on_llen("on_llen_");
const ReplyPrefix on_lset("on_lset_");
const ReplyPrefix on_linsert("on_linsert_");
const ReplyPrefix on_lrange("on_lrange_");

// The position is converted last, after the message's address.
void lset(VuMom& client, const Arguments& in) {
  const auto [db_arg, obj, pos_arg, privdata] = in.values<4>();
  Request request(client, on_lset, obj, privdata);
  request.result_class(types.LsetResult);
  request.hand_over();
  const std::int32_t db = to_int32(db_arg);
  const vu_mom_message message = message_address(obj);
  const std::int32_t pos = to_int32(pos_arg);
  accept(vu_mom_lset(client.handle(), db, message, pos, wrap_cb, request.context()));
}

void lrem(VuMom& client, const Arguments& in) {
  const auto [db_arg, obj, count_arg] = in.values<3>();
  const std::int32_t db = to_int32(db_arg);
  const vu_mom_message message = message_address(obj);
  const std::size_t count = to_size(count_arg);
  accept(vu_mom_lrem(client.handle(), db, message, count, nullptr, nullptr));
}

// The reply method is named after `obj`, and the pivot's address comes first.
void linsert(VuMom& client, const Arguments& in) {
  const auto [db_arg, pivot_arg, obj, order_arg, privdata] = in.values<5>();
  const std::int32_t order = to_int32(order_arg);
  Request request(client, on_linsert, obj, privdata);
  request.result_class(types.LinsertResult);
  request.hand_over();
  const std::int32_t db = to_int32(db_arg);
  const vu_mom_message pivot = message_address(pivot_arg);
  const vu_mom_message message = message_address(obj);
  accept(vu_mom_linsert(client.handle(), db, pivot, message, order, wrap_cb, request.context()));
}

void lrange(VuMom& client, const Arguments& in) {
  const auto [db_arg, obj, start_arg, stop_arg, privdata] = in.values<5>();
  const std::int32_t start = to_int32(start_arg);
  const std::int32_t stop = to_int32(stop_arg);
  Request request(client, on_lrange, obj, privdata);
  request.message_class_of(obj).result_class(types.LrangeResult);
  request.hand_over();
  const std::int32_t db = to_int32(db_arg);
  const vu_mom_message message = message_address(obj);
  accept(vu_mom_lrange(client.handle(), db, message, start, stop, wrap_cb, request.context()));
}

constexpr Command kLpush{"vu_mom.VuMom.lpush",
                         {"lpush", 2, {"db", "obj"}},
                         [](VuMom& client, const Arguments& in) { send(client, in, vu_mom_lpush); },
                         "lpush($self, /, db, obj)\n--\n\n"
                         "Put `obj` at the head of the list under its key. No reply."};

constexpr Command kRpush{"vu_mom.VuMom.rpush",
                         {"rpush", 2, {"db", "obj"}},
                         [](VuMom& client, const Arguments& in) { send(client, in, vu_mom_rpush); },
                         "rpush($self, /, db, obj)\n--\n\n"
                         "Put `obj` at the tail of the list under its key. No reply."};

constexpr Command kLpop{
    "vu_mom.VuMom.lpop",
    {"lpop", 3, {"db", "obj", "privdata"}},
    [](VuMom& client, const Arguments& in) {
      reply_with_message(client, in, on_lpop, vu_mom_lpop);
    },
    "lpop($self, /, db, obj, privdata)\n--\n\n"
    "Take the message at the head of the list under the key of `obj`.\n\n"
    "The reply arrives at on_lpop_<package>_<message>(msg, p): msg.result is the message, or\n"
    "None where the list is empty."};

constexpr Command kRpop{
    "vu_mom.VuMom.rpop",
    {"rpop", 3, {"db", "obj", "privdata"}},
    [](VuMom& client, const Arguments& in) {
      reply_with_message(client, in, on_rpop, vu_mom_rpop);
    },
    "rpop($self, /, db, obj, privdata)\n--\n\n"
    "Take the message at the tail of the list under the key of `obj`.\n\n"
    "The reply arrives at on_rpop_<package>_<message>(msg, p): msg.result is the message, or\n"
    "None where the list is empty."};

constexpr Command kLlen{
    "vu_mom.VuMom.llen",
    {"llen", 3, {"db", "obj", "privdata"}},
    [](VuMom& client, const Arguments& in) {
      reply_with_result(client, in, on_llen, types.LlenResult, vu_mom_llen);
    },
    "llen($self, /, db, obj, privdata)\n--\n\n"
    "Count the messages of the list under the key of `obj`.\n\n"
    "The reply arrives at on_llen_<package>_<message>(msg, p): msg.result is an LlenResult."};

constexpr Command kLset{
    "vu_mom.VuMom.lset",
    {"lset", 4, {"db", "obj", "pos", "privdata"}},
    lset,
    "lset($self, /, db, obj, pos, privdata)\n--\n\n"
    "Put `obj` in the place of the message at position `pos` of the list under its key.\n"
    "Negative positions count from the end.\n\n"
    "The reply arrives at on_lset_<package>_<message>(msg, p): msg.result is an LsetResult."};

constexpr Command kLrem{
    "vu_mom.VuMom.lrem",
    {"lrem", 3, {"db", "obj", "count", "privdata"}},
    lrem,
    "lrem($self, /, db, obj, count, privdata=None)\n--\n\n"
    "Remove the first `count` messages equal to `obj` from the list under its key; 0: all of\n"
    "them. No reply; `privdata` is taken and ignored."};

constexpr Command kLinsert{
    "vu_mom.VuMom.linsert",
    {"linsert", 5, {"db", "pivot", "obj", "order", "privdata"}},
    linsert,
    "linsert($self, /, db, pivot, obj, order, privdata)\n--\n\n"
    "Insert `obj` beside the first message equal to `pivot` in the list under its key:\n"
    "`order` 0 before it, 1 after it.\n\n"
    "The reply arrives at on_linsert_<package>_<message>(msg, p), named after `obj`:\n"
    "msg.result is a LinsertResult."};

constexpr Command kLrange{
    "vu_mom.VuMom.lrange",
    {"lrange", 5, {"db", "obj", "start", "stop", "privdata"}},
    lrange,
    "lrange($self, /, db, obj, start, stop, privdata)\n--\n\n"
    "Read the messages from position `start` to position `stop`, both included, of the list\n"
    "under the key of `obj`. Negative positions count from the end.\n\n"
    "The reply arrives at on_lrange_<package>_<message>(msg, p): msg.result is an\n"
    "LrangeResult."};

}  // namespace

std::vector<PyMethodDef> list_methods() {
  return {method<kLpush>(), method<kRpush>(), method<kLpop>(),    method<kRpop>(),  method<kLlen>(),
          method<kLset>(),  method<kLrem>(),  method<kLinsert>(), method<kLrange>()};
}

}  // namespace vu_mom
