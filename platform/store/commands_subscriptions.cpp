// Subscriptions and publishing.
#include <algorithm>

#include "front.h"

using google::protobuf::Message;
using vu::store::Command;
using vu::store::command;
using vu::store::Receiver;
using vu::store::reply_to;
using vu::store::Request;
using vu::store::require;
using vu::store::stream_to;

VU_STORE_EXPORT int32_t vu_mom_subscribe(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                                         uint32_t level, vu_mom_stream_cb callback,
                                         void* privdata) {
  VU_STORE_ENTRY();
  return command(handle, Command::kSubscribe, db, message, Receiver(),
                 [&](Request& request, const Message&) {
                   require(callback != nullptr);
                   request.level = std::min(level, request.type->levels());
                   Receiver receiver = stream_to(callback, privdata);
                   receiver.type = request.type;
                   request.subscribers.push_back({0, receiver});
                 });
}

VU_STORE_EXPORT int32_t vu_mom_unsubscribe(vu_mom_handle* handle, int32_t db,
                                           vu_mom_message message, uint32_t level, vu_mom_stream_cb,
                                           void*) {
  VU_STORE_ENTRY();
  return command(handle, Command::kUnsubscribe, db, message, Receiver(),
                 [&](Request& request, const Message&) {
                   request.level = std::min(level, request.type->levels());
                   request.tags.push_back(0);
                 });
}

VU_STORE_EXPORT int32_t vu_mom_subscribe_field(vu_mom_handle* handle, int32_t db,
                                               vu_mom_message message, uint32_t level,
                                               const size_t* tags,
                                               const vu_mom_stream_cb* callbacks,
                                               void* const* privdata, int32_t count) {
  VU_STORE_ENTRY();
  return command(handle, Command::kSubscribe, db, message, Receiver(),
                 [&](Request& request, const Message&) {
                   request.level = std::min(level, request.type->levels());
                   field_numbers(request, tags, count);  // checks them
                   require(count == 0 || (callbacks != nullptr && privdata != nullptr));
                   for (int32_t i = 0; i < count; ++i) {
                     require(callbacks[i] != nullptr);
                     Receiver receiver = stream_to(callbacks[i], privdata[i]);
                     receiver.type = request.type;
                     request.subscribers.push_back({static_cast<std::uint32_t>(tags[i]), receiver});
                   }
                 });
}

VU_STORE_EXPORT int32_t vu_mom_unsubscribe_field(vu_mom_handle* handle, int32_t db,
                                                 vu_mom_message message, uint32_t level,
                                                 const size_t* tags, const vu_mom_stream_cb*,
                                                 void* const*, int32_t count) {
  VU_STORE_ENTRY();
  return command(handle, Command::kUnsubscribe, db, message, Receiver(),
                 [&](Request& request, const Message&) {
                   request.level = std::min(level, request.type->levels());
                   request.tags = field_numbers(request, tags, count);
                 });
}

VU_STORE_EXPORT int32_t vu_mom_publish(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                                       vu_mom_reply_cb callback, void* privdata) {
  VU_STORE_ENTRY();
  return command_with_value(handle, Command::kPublish, db, message, reply_to(callback, privdata));
}
