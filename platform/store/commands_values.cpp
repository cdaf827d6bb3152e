// Single values, and the picture for debugging.
#include <cstdio>

#include "front.h"
#include "vu_store.h"

namespace vu::store {
namespace {

// set, setow and delow: the flag's bits, the value where the command stores one.
std::int32_t flagged(vu_mom_handle* handle, Command which, std::int32_t db,
                     const std::int32_t* flag, vu_mom_message message, const Receiver& receiver,
                     std::int64_t owner) noexcept {
  return command(handle, which, db, message, receiver,
                 [&](Request& request, const google::protobuf::Message& named) {
                   const std::int32_t bits = flag == nullptr ? 0 : *flag;
                   require((bits & ~(VU_STORE_QUIET | VU_STORE_KEEP_LIFETIME)) == 0);
                   request.quiet = (bits & VU_STORE_QUIET) != 0;
                   request.keep_lifetime = (bits & VU_STORE_KEEP_LIFETIME) != 0;
                   request.owner = owner;
                   if (which != Command::kDelow) request.value = stored_bytes(request, named);
                 });
}

}  // namespace
}  // namespace vu::store

using vu::store::Command;
using vu::store::command;
using vu::store::command_with_value;
using vu::store::flagged;
using vu::store::reply_to;

VU_STORE_EXPORT int32_t vu_mom_debug_show_all(vu_mom_handle* handle) {
  VU_STORE_ENTRY();
  return vu::store::run_call(handle, [&]() -> int32_t {
    if (handle == nullptr || handle->closed()) return VU_MOM_FAILED;
    handle->engine().show(stdout);
    std::fprintf(stdout, "this handle: %zu waiting to be delivered\n", handle->waiting());
    std::fflush(stdout);
    return VU_MOM_OK;
  });
}

VU_STORE_EXPORT int32_t vu_mom_get(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                                   vu_mom_reply_cb callback, void* privdata) {
  VU_STORE_ENTRY();
  return command(handle, Command::kGet, db, message, reply_to(callback, privdata));
}

VU_STORE_EXPORT int32_t vu_mom_incr(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                                    vu_mom_reply_cb callback, void* privdata) {
  VU_STORE_ENTRY();
  return command(handle, Command::kIncr, db, message, reply_to(callback, privdata),
                 [](vu::store::Request& request, const google::protobuf::Message& named) {
                   vu::store::require(request.type->counts);
                   request.value = stored_bytes(request, named);
                 });
}

VU_STORE_EXPORT int32_t vu_mom_setnx(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                                     vu_mom_reply_cb callback, void* privdata) {
  VU_STORE_ENTRY();
  return command_with_value(handle, Command::kSetnx, db, message, reply_to(callback, privdata));
}

VU_STORE_EXPORT int32_t vu_mom_set_ext(vu_mom_handle* handle, int32_t db, int32_t* flag,
                                       vu_mom_message message, vu_mom_reply_cb callback,
                                       void* privdata) {
  VU_STORE_ENTRY();
  return flagged(handle, Command::kSet, db, flag, message, reply_to(callback, privdata), 0);
}

VU_STORE_EXPORT int32_t vu_mom_setow_ext(vu_mom_handle* handle, int32_t db, int32_t* flag,
                                         vu_mom_message message, vu_mom_reply_cb callback,
                                         void* privdata, int64_t owner) {
  VU_STORE_ENTRY();
  return flagged(handle, Command::kSetow, db, flag, message, reply_to(callback, privdata), owner);
}

VU_STORE_EXPORT int32_t vu_mom_del_ow_ext(vu_mom_handle* handle, int32_t db, int32_t* flag,
                                          vu_mom_message message, vu_mom_reply_cb callback,
                                          void* privdata, int64_t owner) {
  VU_STORE_ENTRY();
  return flagged(handle, Command::kDelow, db, flag, message, reply_to(callback, privdata), owner);
}

VU_STORE_EXPORT int32_t vu_mom_del(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                                   vu_mom_reply_cb callback, void* privdata) {
  VU_STORE_ENTRY();
  return command(handle, Command::kDel, db, message, reply_to(callback, privdata));
}

VU_STORE_EXPORT int32_t vu_mom_setnx_noreply(vu_mom_handle* handle, int32_t db,
                                             vu_mom_message message, vu_mom_reply_cb callback,
                                             void* privdata) {
  VU_STORE_ENTRY();
  return command_with_value(handle, Command::kSetnx, db, message, reply_to(callback, privdata));
}
