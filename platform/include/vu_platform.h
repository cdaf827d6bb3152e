/* What the platform's own modules share with the platform's own store library,
 * beside the interface in include/vu_mom_impl.h that every store library has.
 *
 * The store library (platform/store) provides the functions below. vu_global opens
 * and drives handles with them, vu_message registers the messages it owns, and
 * vu_mom_common reads records and payloads. The binding never sees this header.
 *
 * Threads: as in vu_mom_impl.h, every function is called on a thread that holds the
 * interpreter lock. In a program without an interpreter: from one thread at a time. A
 * library that was built with assertions checks that, and ends the process of a caller
 * who breaks it.
 *
 * Compiles as C11 and as C++.
 */
#ifndef VU_PLATFORM_H
#define VU_PLATFORM_H

#include "vu_mom_impl.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Records ----------------------------------------------------------------- */

enum { VU_PLATFORM_ERROR_TEXT = 256 };

/* What the platform's store writes into vu_mom_reply.details, from byte 0. Records
 * are aligned to 8 bytes; use vu_platform_details() to get at it. */
typedef struct vu_platform_details {
  int64_t time_us; /* when it happened: microseconds since 1970, UTC */
  int64_t count;   /* on the last reply of a request on a level: objects it acted on */
  int32_t status;  /* VU_MOM_OK, or why the request failed (VU_MOM_*) */
  int32_t db;
  uint32_t tag;      /* the field number of a field event, else 0 */
  uint32_t key_size; /* bytes at `key` */
  const unsigned char *key; /* the object's identity, see below; null: none */
  char error[VU_PLATFORM_ERROR_TEXT]; /* UTF-8 with a final 0; "" where status is VU_MOM_OK */
} vu_platform_details;

static inline const vu_platform_details *vu_platform_details_of(const vu_mom_reply *reply) {
  const void *details = reply->details;
#ifdef __cplusplus
  return static_cast<const vu_platform_details *>(details);
#else
  return details;
#endif
}

/* An identity is the sequence of the key components, each self-delimiting:
 *   'i' and 8 bytes  a signed integer, two's complement, little-endian (enums too)
 *   'u' and 8 bytes  an unsigned integer, little-endian
 *   'b' and 1 byte   a bool, 0 or 1
 *   's' and 4 bytes little-endian size, then that many bytes of UTF-8
 *   'y' and 4 bytes little-endian size, then that many bytes
 */

/* ---- Payloads ---------------------------------------------------------------- */

enum vu_platform_payload_kind {
  VU_PLATFORM_PAYLOAD_INTEGER = 1, /* integer */
  VU_PLATFORM_PAYLOAD_SCORE = 2,   /* score */
  VU_PLATFORM_PAYLOAD_HASH = 3,    /* messages[0] and `count` tags */
  VU_PLATFORM_PAYLOAD_MESSAGES = 4, /* `count` messages */
  VU_PLATFORM_PAYLOAD_SCORED = 5   /* `count` messages with scores */
};

/* What vu_mom_reply.data points to wherever it is not a message. `data` is a message
 * (a google::protobuf::Message) for get, lpop, rpop and for the type codes 1, 3, 24
 * and 37; for every other reply and event it is one of these. */
typedef struct vu_platform_payload {
  int32_t kind;      /* vu_platform_payload_kind */
  uint32_t count;    /* entries of messages and scores, or of tags */
  int64_t integer;
  double score;
  const vu_mom_message *messages;
  const double *scores;
  const size_t *tags; /* hash: the field numbers concerned, ascending. A field named
                         here that messages[0] does not carry was deleted or is absent */
} vu_platform_payload;

/* While a record is being delivered: whether `address` is that record, or its payload.
 * Lets the result classes refuse an address that does not come from a reply. */
int vu_platform_is_record(intptr_t address);
int vu_platform_is_payload(intptr_t address);

/* ---- Live messages ------------------------------------------------------------ */

/* The library accepts the addresses registered here, and those of the messages that
 * it is delivering at the moment, and no others. An address is a
 * google::protobuf::Message* as an integer; registering one twice counts twice.
 * add returns VU_MOM_OK or VU_MOM_NO_MEMORY; remove cannot fail. */
int32_t vu_platform_message_add(intptr_t address);
void vu_platform_message_remove(intptr_t address);
int vu_platform_message_is_live(intptr_t address);

/* Makes a message that the library is delivering the caller's, who deletes or drops it, and saves
 * making a copy. From then on its address is live no more, unless it is registered. Taken once
 * more while the delivery lasts, there is another message with the same contents, elsewhere.
 * Returns VU_MOM_OK; VU_MOM_BAD_INPUT, with 0 in `taken`, where no message that is being
 * delivered was made at this address, or its owner has registered it; or VU_MOM_NO_MEMORY. */
int32_t vu_platform_message_take(intptr_t address, intptr_t *taken);

/* Deletes a message of the caller's, or keeps its memory for one to be delivered later. It is not
 * registered, and may have been taken or not. */
void vu_platform_message_drop(intptr_t address);

/* ---- Handles ------------------------------------------------------------------ */

struct uv_loop_s;

/* Called when the handle has something to deliver, or to send, and nobody was told since
 * the last vu_platform_deliver, from inside a command or from a loop callback. It must not
 * call back into the library; it arranges for vu_platform_deliver to be called. */
typedef void (*vu_platform_wake)(void *user);

/* Opens a handle on `store` ("embedded:", "embedded:NAME", "redis://host", …). `loop` is
 * borrowed; the embedded engine does not use it and takes null. A store on a server has its
 * sockets and timers in it: whoever drives the handle also runs the uv loop, as every
 * function here on a thread that holds the interpreter lock, and runs it once more after the
 * last handle was freed, so that what is closing there goes. Connections are made by
 * themselves, when there is something to send.
 * On failure returns null with the reason in `error`, empty where memory is short. */
vu_mom_handle *vu_platform_open(const char *store, struct uv_loop_s *loop, vu_platform_wake wake,
                                void *user, char *error, size_t error_size);

/* Writes what may be shown of `store` into `text`, with a final 0: the same with "***" in the
 * place of a password, which needs less than 8 bytes and twice those of `store`. VU_MOM_OK;
 * VU_MOM_BAD_INPUT where `size` is too small; or VU_MOM_NO_MEMORY. Does not look whether there is such a store. */
int32_t vu_platform_store_text(const char *store, char *text, size_t size);

/* Sends what was issued since the last call, and delivers at most `most` replies and events,
 * oldest first, by calling their callbacks.
 * Returns 1 if more are waiting, else 0. May be called from inside a callback; then it
 * returns 1 at once and the outer call goes on. */
int vu_platform_deliver(vu_mom_handle *handle, uint32_t most);

/* Microseconds until the handle next wants vu_platform_deliver called by the clock
 * (something expires); 0: now, -1: never. */
int64_t vu_platform_next_due(vu_mom_handle *handle);

/* Closes: later commands answer VU_MOM_FAILED; every accepted request is completed with
 * an error and every subscription gets its end, by the following vu_platform_deliver
 * calls. Closing twice does nothing. */
void vu_platform_close(vu_mom_handle *handle);

/* Frees a closed handle. What was not delivered by then is dropped undelivered. Inside
 * a delivery of this handle the memory is kept until that delivery returns. */
void vu_platform_free(vu_mom_handle *handle);

/* What a handle has done since it was opened, and what it has before it. Counters only grow;
 * what one process does with several handles is the sum. A closed handle keeps its counters. */
typedef struct vu_platform_stats {
  uint64_t commands;     /* accepted, subscriptions included */
  uint64_t refused;      /* calls of commands with another status than VU_MOM_OK */
  uint64_t replies;      /* delivered, each object of a scan or a level and its end */
  uint64_t errors;       /* of the replies: those with an error */
  uint64_t events;       /* delivered, ends of subscriptions included */
  uint64_t missed;       /* events delivered that say that others may be missing */
  uint64_t reconnects;   /* of the store: connections that were lost and are back */
  uint64_t waiting;      /* now: replies and events to be delivered */
  uint64_t pending;      /* now, of the store: commands without an answer, its own included */
  uint64_t unsent_bytes; /* now, of the store: bytes of commands not sent yet */
} vu_platform_stats;

/* "Of the store" is what all handles share that use the same server on the same loop; 0 for
 * an embedded store. Costs nothing to speak of, and cannot fail. */
void vu_platform_stats_of(const vu_mom_handle *handle, vu_platform_stats *stats);

/* Where the library checks its callers' threads: `lock_is_held` says whether the calling
 * thread holds the interpreter lock, and is asked at each call from now on. Null (as long
 * as nothing else was said): only calls that overlap are noticed. */
void vu_platform_check_threads(int (*lock_is_held)(void));

/* For tests: stops the store's clock on the first call and moves it by `microseconds`. */
void vu_platform_advance_clock(vu_mom_handle *handle, int64_t microseconds);

#ifdef __cplusplus
}
#endif

VU_MOM_ASSERT(sizeof(vu_platform_details) <= offsetof(vu_mom_reply, type_code),
              "the details fit into the record");

#endif
