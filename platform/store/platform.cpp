// The functions of vu_platform.h that open and drive handles.
#include <algorithm>
#include <cstring>
#include <memory>

#include "front.h"
#include "record.h"
#include "server/secrets.h"
#include "session.h"

namespace {

void report(const std::string& reason, char* error, std::size_t error_size) {
  if (error == nullptr || error_size == 0) return;
  const std::size_t size = std::min(reason.size(), error_size - 1);
  std::memcpy(error, reason.data(), size);
  error[size] = '\0';
}

}  // namespace

VU_STORE_EXPORT vu_mom_handle* vu_platform_open(const char* store, struct uv_loop_s* loop,
                                                vu_platform_wake wake, void* user, char* error,
                                                size_t error_size) {
  VU_STORE_ENTRY();
  try {
    auto handle = std::make_unique<vu_mom_handle>(wake, user);
    std::string reason;
    if (store != nullptr && handle->open(store, loop, reason)) return handle.release();
    report(store == nullptr ? "no store is named" : reason, error, error_size);
  } catch (const std::bad_alloc&) {
    report("", error, error_size);
  }
  return nullptr;
}

VU_STORE_EXPORT int32_t vu_platform_store_text(const char* store, char* text, size_t size) {
  VU_STORE_ENTRY();
  try {
    const std::string hidden = vu::store::without_password(store);
    if (hidden.size() >= size) return VU_MOM_BAD_INPUT;
    report(hidden, text, size);
    return VU_MOM_OK;
  } catch (const std::bad_alloc&) {
    return VU_MOM_NO_MEMORY;
  }
}

VU_STORE_EXPORT int vu_platform_deliver(vu_mom_handle* handle, uint32_t most) {
  VU_STORE_ENTRY();
  return handle->deliver(most) ? 1 : 0;
}

VU_STORE_EXPORT int64_t vu_platform_next_due(vu_mom_handle* handle) {
  VU_STORE_ENTRY();
  return handle->next_due();
}

VU_STORE_EXPORT void vu_platform_close(vu_mom_handle* handle) {
  VU_STORE_ENTRY();
  handle->close();
}

VU_STORE_EXPORT void vu_platform_free(vu_mom_handle* handle) {
  VU_STORE_ENTRY();
  handle->free();
}

VU_STORE_EXPORT void vu_platform_stats_of(const vu_mom_handle* handle, vu_platform_stats* stats) {
  VU_STORE_ENTRY();
  *stats = handle->stats();
}

VU_STORE_EXPORT void vu_platform_advance_clock(vu_mom_handle* handle, int64_t microseconds) {
  VU_STORE_ENTRY();
  if (!handle->closed()) handle->engine().advance_clock(microseconds);
}

VU_STORE_EXPORT int vu_platform_is_record(intptr_t address) {
  VU_STORE_ENTRY();
  return vu::store::Record::is_record(address) ? 1 : 0;
}

VU_STORE_EXPORT int vu_platform_is_payload(intptr_t address) {
  VU_STORE_ENTRY();
  return vu::store::Record::is_payload(address) ? 1 : 0;
}
