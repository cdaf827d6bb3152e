/* Plays the store's deliveries: makes a record and its payload, answers for them while
 * they are being delivered, and destroys them afterwards.
 *
 * Loaded before the store library with its names visible to all, so that vu_mom_common
 * asks this library what is being delivered. One delivery at a time. */
#include <malloc.h>
#include <stdlib.h>
#include <string.h>

#include "vu_platform.h"

#define EXPORT __attribute__((visibility("default")))

static vu_mom_reply* record;
static vu_platform_payload* payload;

EXPORT int vu_platform_is_record(intptr_t address) {
  return record != NULL && address == (intptr_t)record;
}

EXPORT int vu_platform_is_payload(intptr_t address) {
  return payload != NULL && address == (intptr_t)payload;
}

static void* copy(const void* bytes, size_t size) {
  if (bytes == NULL) return NULL;
  void* made = malloc(size == 0 ? 1 : size);
  if (made == NULL) abort();
  if (size != 0) memcpy(made, bytes, size);
  return made;
}

/* Overwritten first: whoever still looks at it sees that it is gone. */
static void destroy(void* bytes, size_t size) {
  if (bytes == NULL) return;
  memset(bytes, 0xDD, size);
  free(bytes);
}

EXPORT intptr_t support_payload(int32_t kind, uint32_t count, int64_t integer, double score,
                                const vu_mom_message* messages, const double* scores,
                                const size_t* tags) {
  vu_platform_payload made = {.kind = kind, .count = count, .integer = integer, .score = score};
  const size_t message_count = kind == VU_PLATFORM_PAYLOAD_HASH ? 1 : count;
  made.messages = copy(messages, message_count * sizeof *messages);
  made.scores = copy(scores, count * sizeof *scores);
  made.tags = copy(tags, count * sizeof *tags);
  payload = copy(&made, sizeof made);
  return (intptr_t)payload;
}

EXPORT intptr_t support_record(int32_t type_code, uint32_t end, int32_t status, const char* error,
                               int32_t db, const unsigned char* key, uint32_t key_size,
                               uint32_t tag, int64_t time_us, int64_t count) {
  vu_platform_details details = {.time_us = time_us,
                                 .count = count,
                                 .status = status,
                                 .db = db,
                                 .tag = tag,
                                 .key_size = key_size,
                                 .key = copy(key, key_size)};
  const size_t length = strlen(error) + 1;
  const size_t room = sizeof details.error; /* a text that fills it has no final 0 */
  memcpy(details.error, error, length < room ? length : room);
  vu_mom_reply made;
  memset(&made, 0xDD, sizeof made); /* what nobody may read says nothing */
  made.type_code = type_code;
  made.data = payload;
  made.end_mark = end;
  memcpy(made.details, &details, sizeof details);
  record = copy(&made, sizeof made);
  return (intptr_t)record;
}

EXPORT void support_end(void) {
  if (payload != NULL) {
    const size_t count = payload->count;
    const size_t message_count = payload->kind == VU_PLATFORM_PAYLOAD_HASH ? 1 : count;
    destroy((void*)(uintptr_t)payload->messages, message_count * sizeof *payload->messages);
    destroy((void*)(uintptr_t)payload->scores, count * sizeof *payload->scores);
    destroy((void*)(uintptr_t)payload->tags, count * sizeof *payload->tags);
    destroy(payload, sizeof *payload);
    payload = NULL;
  }
  if (record != NULL) {
    const vu_platform_details* details = vu_platform_details_of(record);
    destroy((void*)(uintptr_t)details->key, details->key_size);
    destroy(record, sizeof *record);
    record = NULL;
  }
}

/* Bytes allocated from the C heap; 0 where the allocator keeps no account. */
EXPORT size_t support_heap_bytes(void) { return mallinfo2().uordblks; }
