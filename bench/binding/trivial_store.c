/* A store library that does nothing, under the name of the real one: what a call costs
 * against it is what the binding costs. Requests with a callback are remembered, and
 * trivial_poll() answers them with one and the same record. */
#include <stdlib.h>

#include "vu_platform.h"

#define EXPORT __attribute__((visibility("default")))

enum { kMostPending = 4096 };

typedef struct {
  vu_mom_reply_cb callback;
  void *privdata;
} Pending;

static Pending pending[kMostPending];
static int pending_count = 0;
static vu_mom_reply record;
static vu_platform_payload payload;

static int32_t remember(vu_mom_reply_cb callback, void *privdata) {
  if (callback == NULL) return VU_MOM_OK;
  if (pending_count == kMostPending) return VU_MOM_FAILED;
  pending[pending_count].callback = callback;
  pending[pending_count].privdata = privdata;
  ++pending_count;
  return VU_MOM_OK;
}

/* Answers everything that is pending. */
EXPORT void trivial_poll(void);
EXPORT void trivial_poll(void) {
  record.data = &payload;
  const int count = pending_count;
  pending_count = 0;
  for (int i = 0; i < count; ++i) pending[i].callback(NULL, &record, pending[i].privdata);
}

EXPORT int32_t vu_mom_get(vu_mom_handle *handle, int32_t db, vu_mom_message message,
                          vu_mom_reply_cb callback, void *privdata) {
  (void)handle, (void)db, (void)message;
  return remember(callback, privdata);
}

EXPORT int32_t vu_mom_set_ext(vu_mom_handle *handle, int32_t db, int32_t *flag,
                              vu_mom_message message, vu_mom_reply_cb callback, void *privdata) {
  (void)handle, (void)db, (void)flag, (void)message;
  return remember(callback, privdata);
}

EXPORT int32_t vu_mom_hmset(vu_mom_handle *handle, int32_t db, vu_mom_message message,
                            const size_t *tags, int32_t count, vu_mom_reply_cb callback,
                            void *privdata) {
  (void)handle, (void)db, (void)message, (void)tags, (void)count;
  return remember(callback, privdata);
}

EXPORT int32_t vu_mom_zadd(vu_mom_handle *handle, int32_t db, const double *scores,
                           const vu_mom_message *messages, int32_t count,
                           vu_mom_reply_cb callback, void *privdata) {
  (void)handle, (void)db, (void)scores, (void)messages, (void)count;
  return remember(callback, privdata);
}

/* What the platform's modules need of it. The handle is never looked into. */
EXPORT vu_mom_handle *vu_platform_open(const char *store, struct uv_loop_s *loop,
                                       vu_platform_wake wake, void *user, char *error,
                                       size_t error_size) {
  (void)store, (void)loop, (void)wake, (void)user, (void)error, (void)error_size;
  return (vu_mom_handle *)(void *)&record;
}

EXPORT int vu_platform_deliver(vu_mom_handle *handle, uint32_t most) {
  (void)handle, (void)most;
  trivial_poll();
  return 0;
}

EXPORT int64_t vu_platform_next_due(vu_mom_handle *handle) {
  (void)handle;
  return -1;
}

EXPORT void vu_platform_close(vu_mom_handle *handle) { (void)handle; }
EXPORT void vu_platform_free(vu_mom_handle *handle) { (void)handle; }

EXPORT void vu_platform_check_threads(int (*lock_is_held)(void)) { (void)lock_is_held; }

EXPORT void vu_platform_advance_clock(vu_mom_handle *handle, int64_t microseconds) {
  (void)handle, (void)microseconds;
}

EXPORT int vu_platform_is_record(intptr_t address) { return address == (intptr_t)&record; }
EXPORT int vu_platform_is_payload(intptr_t address) { return address == (intptr_t)&payload; }

EXPORT int32_t vu_platform_message_add(intptr_t address) {
  (void)address;
  return VU_MOM_OK;
}
EXPORT void vu_platform_message_remove(intptr_t address) { (void)address; }
EXPORT int vu_platform_message_is_live(intptr_t address) { return address != 0; }

EXPORT int32_t vu_platform_message_take(intptr_t address, intptr_t *taken) {
  (void)address;
  *taken = 0;
  return VU_MOM_BAD_INPUT;
}

EXPORT void vu_platform_message_drop(intptr_t address) { (void)address; }

EXPORT int32_t vu_platform_store_text(const char *store, char *text, size_t size) {
  (void)store;
  if (size == 0) return VU_MOM_BAD_INPUT;
  text[0] = '\0';
  return VU_MOM_OK;
}

EXPORT void vu_platform_stats_of(const vu_mom_handle *handle, vu_platform_stats *stats) {
  (void)handle;
  *stats = (vu_platform_stats){0};
}
