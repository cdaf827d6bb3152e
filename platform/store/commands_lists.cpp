// Lists.
#include "front.h"

using google::protobuf::Message;
using vu::store::Command;
using vu::store::command;
using vu::store::command_with_value;
using vu::store::reply_to;
using vu::store::Request;

VU_STORE_EXPORT int32_t vu_mom_lpush(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                                     vu_mom_reply_cb callback, void* privdata) {
  VU_STORE_ENTRY();
  return command_with_value(handle, Command::kLpush, db, message, reply_to(callback, privdata));
}

VU_STORE_EXPORT int32_t vu_mom_rpush(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                                     vu_mom_reply_cb callback, void* privdata) {
  VU_STORE_ENTRY();
  return command_with_value(handle, Command::kRpush, db, message, reply_to(callback, privdata));
}

VU_STORE_EXPORT int32_t vu_mom_lpop(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                                    vu_mom_reply_cb callback, void* privdata) {
  VU_STORE_ENTRY();
  return command(handle, Command::kLpop, db, message, reply_to(callback, privdata));
}

VU_STORE_EXPORT int32_t vu_mom_rpop(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                                    vu_mom_reply_cb callback, void* privdata) {
  VU_STORE_ENTRY();
  return command(handle, Command::kRpop, db, message, reply_to(callback, privdata));
}

VU_STORE_EXPORT int32_t vu_mom_llen(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                                    vu_mom_reply_cb callback, void* privdata) {
  VU_STORE_ENTRY();
  return command(handle, Command::kLlen, db, message, reply_to(callback, privdata));
}

VU_STORE_EXPORT int32_t vu_mom_lset(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                                    int32_t pos, vu_mom_reply_cb callback, void* privdata) {
  VU_STORE_ENTRY();
  return command(handle, Command::kLset, db, message, reply_to(callback, privdata),
                 [&](Request& request, const Message& named) {
                   request.value = stored_bytes(request, named);
                   request.start = pos;
                 });
}

VU_STORE_EXPORT int32_t vu_mom_lrem(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                                    size_t count, vu_mom_reply_cb callback, void* privdata) {
  VU_STORE_ENTRY();
  return command(handle, Command::kLrem, db, message, reply_to(callback, privdata),
                 [&](Request& request, const Message& named) {
                   request.value = stored_bytes(request, named);
                   request.count = count;
                 });
}

VU_STORE_EXPORT int32_t vu_mom_linsert(vu_mom_handle* handle, int32_t db, vu_mom_message pivot,
                                       vu_mom_message message, int32_t order,
                                       vu_mom_reply_cb callback, void* privdata) {
  VU_STORE_ENTRY();
  return command(handle, Command::kLinsert, db, message, reply_to(callback, privdata),
                 [&](Request& request, const Message& named) {
                   vu::store::require(order == 0 || order == 1);
                   request.after = order == 1;
                   request.pivot = stored_bytes_at(request, pivot);
                   request.value = stored_bytes(request, named);
                 });
}

VU_STORE_EXPORT int32_t vu_mom_lrange(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                                      int32_t start, int32_t stop, vu_mom_reply_cb callback,
                                      void* privdata) {
  VU_STORE_ENTRY();
  return command(handle, Command::kLrange, db, message, reply_to(callback, privdata),
                 [&](Request& request, const Message&) {
                   request.start = start;
                   request.stop = stop;
                 });
}
