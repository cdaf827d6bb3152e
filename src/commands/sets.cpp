// Commands on a set of messages.
#include "commands/commands.h"
#include "commands/shapes.h"
#include "module/imported_types.h"

namespace vu_mom {
namespace {

const ReplyPrefix on_smembers("on_smembers_");
const ReplyPrefix on_scard("on_scard_");
const ReplyPrefix on_sismember("on_sismember_");

constexpr Command kSadd{"vu_mom.VuMom.sadd",
                        {"sadd", 2, {"db", "obj"}},
                        [](VuMom& client, const Arguments& in) { send(client, in, vu_mom_sadd); },
                        "sadd($self, /, db, obj)\n--\n\n"
                        "Add `obj` to the set under its key. No reply."};

constexpr Command kSrem{
    "vu_mom.VuMom.srem",
    {"srem", 2, {"db", "obj", "privdata"}},
    [](VuMom& client, const Arguments& in) { send(client, in, vu_mom_srem); },
    "srem($self, /, db, obj, privdata=None)\n--\n\n"
    "Remove `obj` from the set under its key. No reply; `privdata` is taken and ignored."};

constexpr Command kSmembers{
    "vu_mom.VuMom.smembers",
    {"smembers", 3, {"db", "obj", "privdata"}},
    [](VuMom& client, const Arguments& in) {
      reply_with_messages(client, in, on_smembers, types.SmembersResult, vu_mom_smembers);
    },
    "smembers($self, /, db, obj, privdata)\n--\n\n"
    "Read the members of the set under the key of `obj`.\n\n"
    "The reply arrives at on_smembers_<package>_<message>(msg, p): msg.result is a\n"
    "SmembersResult."};

constexpr Command kScard{
    "vu_mom.VuMom.scard",
    {"scard", 3, {"db", "obj", "privdata"}},
    [](VuMom& client, const Arguments& in) {
      reply_with_result(client, in, on_scard, types.ScardResult, vu_mom_scard);
    },
    "scard($self, /, db, obj, privdata)\n--\n\n"
    "Count the members of the set under the key of `obj`.\n\n"
    "The reply arrives at on_scard_<package>_<message>(msg, p): msg.result is a ScardResult."};

constexpr Command kSismember{
    "vu_mom.VuMom.sismember",
    {"sismember", 3, {"db", "obj", "privdata"}},
    [](VuMom& client, const Arguments& in) {
      reply_with_result(client, in, on_sismember, types.SismemberResult, vu_mom_sismember);
    },
    "sismember($self, /, db, obj, privdata)\n--\n\n"
    "Tell whether `obj` is a member of the set under its key.\n\n"
    "The reply arrives at on_sismember_<package>_<message>(msg, p): msg.result is a\n"
    "SismemberResult."};

}  // namespace

std::vector<PyMethodDef> set_methods() {
  return {method<kSadd>(), method<kSrem>(), method<kSmembers>(), method<kScard>(),
          method<kSismember>()};
}

}  // namespace vu_mom
