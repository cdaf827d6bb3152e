// Sets.
#include "front.h"

using vu::store::Command;
using vu::store::command;
using vu::store::command_with_value;
using vu::store::reply_to;

VU_STORE_EXPORT int32_t vu_mom_sadd(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                                    vu_mom_reply_cb callback, void* privdata) {
  VU_STORE_ENTRY();
  return command_with_value(handle, Command::kSadd, db, message, reply_to(callback, privdata));
}

VU_STORE_EXPORT int32_t vu_mom_srem(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                                    vu_mom_reply_cb callback, void* privdata) {
  VU_STORE_ENTRY();
  return command_with_value(handle, Command::kSrem, db, message, reply_to(callback, privdata));
}

VU_STORE_EXPORT int32_t vu_mom_smembers(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                                        vu_mom_reply_cb callback, void* privdata) {
  VU_STORE_ENTRY();
  return command(handle, Command::kSmembers, db, message, reply_to(callback, privdata));
}

VU_STORE_EXPORT int32_t vu_mom_scard(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                                     vu_mom_reply_cb callback, void* privdata) {
  VU_STORE_ENTRY();
  return command(handle, Command::kScard, db, message, reply_to(callback, privdata));
}

VU_STORE_EXPORT int32_t vu_mom_sismember(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                                         vu_mom_reply_cb callback, void* privdata) {
  VU_STORE_ENTRY();
  return command_with_value(handle, Command::kSismember, db, message, reply_to(callback, privdata));
}
