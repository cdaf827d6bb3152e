// Commands on every object that matches the first key components: scans, lifetimes,
// deletion.
#include <algorithm>

#include "front.h"

namespace vu::store {
namespace {

template <typename Fill>
std::int32_t on_level(vu_mom_handle* handle, Command which, std::int32_t db, vu_mom_message message,
                      std::uint32_t level, const Receiver& receiver, Fill fill) noexcept {
  return command(handle, which, db, message, receiver,
                 [&](Request& request, const google::protobuf::Message&) {
                   request.level = std::min(level, request.type->levels());
                   fill(request);
                 });
}

std::int64_t lifetime_of(std::int32_t seconds, std::int32_t microseconds) {
  return std::int64_t{seconds} * 1000000 + microseconds;
}

}  // namespace
}  // namespace vu::store

using vu::store::Command;
using vu::store::lifetime_of;
using vu::store::on_level;
using vu::store::reply_to;
using vu::store::Request;
using vu::store::stream_to;

VU_STORE_EXPORT int32_t vu_mom_scan(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                                    uint32_t level, vu_mom_stream_cb callback, void* privdata) {
  VU_STORE_ENTRY();
  return on_level(handle, Command::kScan, db, message, level, stream_to(callback, privdata),
                  [](Request&) {});
}

VU_STORE_EXPORT int32_t vu_mom_scan_index(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                                          uint32_t level, vu_mom_stream_cb callback,
                                          void* privdata) {
  VU_STORE_ENTRY();
  return on_level(handle, Command::kScanIndex, db, message, level, stream_to(callback, privdata),
                  [](Request&) {});
}

VU_STORE_EXPORT int32_t vu_mom_pexpire(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                                       uint32_t level, int32_t seconds, int32_t microseconds,
                                       vu_mom_reply_cb callback, void* privdata) {
  VU_STORE_ENTRY();
  return on_level(
      handle, Command::kPexpire, db, message, level, reply_to(callback, privdata),
      [&](Request& request) { request.lifetime_us = lifetime_of(seconds, microseconds); });
}

VU_STORE_EXPORT int32_t vu_mom_pexpire_field(vu_mom_handle* handle, int32_t db,
                                             vu_mom_message message, uint32_t level, int32_t tag,
                                             int32_t seconds, int32_t microseconds,
                                             vu_mom_reply_cb callback, void* privdata) {
  VU_STORE_ENTRY();
  return on_level(handle, Command::kPexpireFields, db, message, level, reply_to(callback, privdata),
                  [&](Request& request) {
                    vu::store::require(tag > 0);
                    const auto number = static_cast<std::size_t>(tag);
                    request.tags = field_numbers(request, &number, 1);
                    request.lifetime_us = lifetime_of(seconds, microseconds);
                  });
}

VU_STORE_EXPORT int32_t vu_mom_pexpire_fields(vu_mom_handle* handle, int32_t db,
                                              vu_mom_message message, uint32_t level,
                                              const size_t* tags, int32_t count, int32_t seconds,
                                              int32_t microseconds, vu_mom_reply_cb callback,
                                              void* privdata) {
  VU_STORE_ENTRY();
  return on_level(handle, Command::kPexpireFields, db, message, level, reply_to(callback, privdata),
                  [&](Request& request) {
                    request.tags = field_numbers(request, tags, count);
                    request.lifetime_us = lifetime_of(seconds, microseconds);
                  });
}

VU_STORE_EXPORT int32_t vu_mom_del_expire(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                                          uint32_t level, vu_mom_reply_cb callback,
                                          void* privdata) {
  VU_STORE_ENTRY();
  return on_level(handle, Command::kDelExpire, db, message, level, reply_to(callback, privdata),
                  [](Request&) {});
}

VU_STORE_EXPORT int32_t vu_mom_pdel(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                                    uint32_t level, vu_mom_reply_cb callback, void* privdata) {
  VU_STORE_ENTRY();
  return on_level(handle, Command::kPdel, db, message, level, reply_to(callback, privdata),
                  [](Request&) {});
}
