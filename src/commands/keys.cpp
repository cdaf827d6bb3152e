// Commands on the single value stored under a key.
#include "client/numbers.h"
#include "client/status.h"
#include "commands/commands.h"
#include "commands/shapes.h"
#include "module/imported_types.h"

namespace vu_mom {
namespace {

const ReplyPrefix on_get("on_get_");
const ReplyPrefix on_incr("on_incr_");
const ReplyPrefix on_setnx("on_setnx_");

// `flag` is an optional argument, 0 where it is not given.
std::int32_t to_flag(py::Borrowed flag_arg) { return flag_arg.is_null() ? 0 : to_int32(flag_arg); }

void set(VuMom& client, const Arguments& in) {
  const auto [db_arg, obj, flag_arg] = in.values<3>();
  std::int32_t flag = to_flag(flag_arg);
  const std::int32_t db = to_int32(db_arg);
  const vu_mom_message message = message_address(obj);
  accept(vu_mom_set_ext(client.handle(), db, &flag, message, nullptr, nullptr));
}

using OwnerFunction = decltype(&vu_mom_setow_ext);

void send_with_owner(VuMom& client, const Arguments& in, OwnerFunction function) {
  const auto [db_arg, obj, owner_arg, flag_arg] = in.values<4>();
  std::int32_t flag = to_flag(flag_arg);
  const std::int32_t db = to_int32(db_arg);
  const vu_mom_message message = message_address(obj);
  const std::int64_t owner = to_int64(owner_arg);
  accept(function(client.handle(), db, &flag, message, nullptr, nullptr, owner));
}

constexpr Command kGet{
    "vu_mom.VuMom.get",
    {"get", 3, {"db", "obj", "privdata"}},
    [](VuMom& client, const Arguments& in) { reply_with_message(client, in, on_get, vu_mom_get); },
    "get($self, /, db, obj, privdata)\n--\n\n"
    "Read the message stored under the key of `obj`.\n\n"
    "The reply arrives at on_get_<package>_<message>(msg, p): msg.result is a message of the\n"
    "class of `obj`, or None where nothing is stored."};

constexpr Command kIncr{
    "vu_mom.VuMom.incr",
    {"incr", 3, {"db", "obj", "privdata"}},
    [](VuMom& client, const Arguments& in) {
      reply_with_result(client, in, on_incr, types.IncrResult, vu_mom_incr);
    },
    "incr($self, /, db, obj, privdata)\n--\n\n"
    "Add one to the counter field of the message stored under the key of `obj`.\n\n"
    "The reply arrives at on_incr_<package>_<message>(msg, p): msg.result is an IncrResult\n"
    "with the new value."};

constexpr Command kSetnx{
    "vu_mom.VuMom.setnx",
    {"setnx", 3, {"db", "obj", "privdata"}},
    [](VuMom& client, const Arguments& in) {
      reply_with_result(client, in, on_setnx, types.SetnxResult, vu_mom_setnx);
    },
    "setnx($self, /, db, obj, privdata)\n--\n\n"
    "Store `obj` under its key if nothing is stored there.\n\n"
    "The reply arrives at on_setnx_<package>_<message>(msg, p): msg.result is a SetnxResult\n"
    "that tells whether it was stored."};

constexpr Command kSet{"vu_mom.VuMom.set",
                       {"set", 2, {"db", "obj", "flag"}},
                       set,
                       "set($self, /, db, obj, flag=0)\n--\n\n"
                       "Store `obj` under its key, in place of what is there. No reply.\n\n"
                       "`flag` is a set of bits whose meaning is the store's."};

constexpr Command kSetow{
    "vu_mom.VuMom.setow",
    {"setow", 3, {"db", "obj", "owner", "flag"}},
    [](VuMom& client, const Arguments& in) { send_with_owner(client, in, vu_mom_setow_ext); },
    "setow($self, /, db, obj, owner, flag=0)\n--\n\n"
    "Store `obj` under its key for `owner`, a signed 64-bit number. No reply.\n\n"
    "Without effect while another owner holds the object."};

constexpr Command kDelow{
    "vu_mom.VuMom.delow",
    {"delow", 3, {"db", "obj", "owner", "flag"}},
    [](VuMom& client, const Arguments& in) { send_with_owner(client, in, vu_mom_del_ow_ext); },
    "delow($self, /, db, obj, owner, flag=0)\n--\n\n"
    "Delete what is stored under the key of `obj` if `owner` holds it. No reply."};

constexpr Command kDelete{"vu_mom.VuMom.delete",
                          {"delete", 2, {"db", "obj"}},
                          [](VuMom& client, const Arguments& in) { send(client, in, vu_mom_del); },
                          "delete($self, /, db, obj)\n--\n\n"
                          "Delete what is stored under the key of `obj`. No reply."};

constexpr Command kSetnxNoreply{
    "vu_mom.VuMom.setnx_noreply",
    {"setnx_noreply", 2, {"db", "obj"}},
    [](VuMom& client, const Arguments& in) { send(client, in, vu_mom_setnx_noreply); },
    "setnx_noreply($self, /, db, obj)\n--\n\n"
    "Store `obj` under its key if nothing is stored there. No reply."};

}  // namespace

std::vector<PyMethodDef> key_methods() {
  return {method<kGet>(),   method<kIncr>(),  method<kSetnx>(),  method<kSet>(),
          method<kSetow>(), method<kDelow>(), method<kDelete>(), method<kSetnxNoreply>()};
}

}  // namespace vu_mom
