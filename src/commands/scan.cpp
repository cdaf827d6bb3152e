// Scans: commands whose replies come one stored object at a time.
#include "client/numbers.h"
#include "client/reply.h"
#include "client/request.h"
#include "client/status.h"
#include "commands/commands.h"
#include "module/exceptions.h"
#include "module/imported_types.h"

namespace vu_mom {
namespace {

const ReplyPrefix on_scan("on_scan_");
const ReplyPrefix on_scanindex("on_scanindex_");

// What arrived is told by the type code; the context is given back with end mark 1.
extern "C" std::int32_t scan_cb(void*, const vu_mom_reply* reply, void* privdata) {
  enter_unraisable("vu_mom.scan_cb", [&] {
    Delivery delivery(reply, privdata);
    switch (reply->type_code) {
      case VU_MOM_TYPE_SET:
      case VU_MOM_TYPE_INDEX:
        delivery.set_message();
        break;
      case VU_MOM_TYPE_HMSET:
        delivery.set_result_with_class(types.HashResult);
        break;
      case VU_MOM_TYPE_SADD:
        delivery.set_result_with_class(types.SmembersResult);
        break;
      case VU_MOM_TYPE_ZADD:
        delivery.set_result_with_class(types.ZrangeResult);
        break;
      case VU_MOM_TYPE_LPUSH:
        delivery.set_result_with_class(types.LrangeResult);
        break;
      case VU_MOM_TYPE_NONE:
        break;
      default:
        py::raise(reinterpret_cast<PyObject*>(&MomCApiInnerError));
    }
    delivery.call();
    if (reply->end_mark == VU_MOM_END_SCAN) delivery.release();
  });
  return 0;
}

using ScanFunction = decltype(&vu_mom_scan);

void scan(VuMom& client, const Arguments& in, const ReplyPrefix& prefix, ScanFunction function) {
  const auto [db_arg, obj, level_arg, privdata] = in.values<4>();
  const std::uint32_t level = to_uint32(level_arg);
  Request request(client, prefix, obj, privdata);
  request.message_class_of(obj);
  request.hand_over();
  const std::int32_t db = to_int32(db_arg);
  const vu_mom_message message = message_address(obj);
  accept(function(client.handle(), db, message, level, scan_cb, request.context()));
}

constexpr Command kScan{
    "vu_mom.VuMom.scan",
    {"scan", 4, {"db", "obj", "level", "privdata"}},
    [](VuMom& client, const Arguments& in) { scan(client, in, on_scan, vu_mom_scan); },
    "scan($self, /, db, obj, level, privdata)\n--\n\n"
    "Read every object of the type of `obj` whose first `level` key components are equal to\n"
    "those of `obj`.\n\n"
    "Replies arrive at on_scan_<package>_<message>(msg, p), one per object: msg.result is a\n"
    "message, HashResult, LrangeResult, SmembersResult or ZrangeResult, by what is stored.\n"
    "The last reply has the end mark 1."};

constexpr Command kScanIndex{
    "vu_mom.VuMom.scan_index",
    {"scan_index", 4, {"db", "obj", "level", "privdata"}},
    [](VuMom& client, const Arguments& in) { scan(client, in, on_scanindex, vu_mom_scan_index); },
    "scan_index($self, /, db, obj, level, privdata)\n--\n\n"
    "Like scan, for the keys alone.\n\n"
    "Replies arrive at on_scanindex_<package>_<message>(msg, p): msg.result is a message of\n"
    "which only the key fields are set. The last reply has the end mark 1."};

}  // namespace

std::vector<PyMethodDef> scan_methods() { return {method<kScan>(), method<kScanIndex>()}; }

}  // namespace vu_mom
