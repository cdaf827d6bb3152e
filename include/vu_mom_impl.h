/* The C interface of the store client library, libvu_mom_impl.
 *
 * This header is everything that the Python binding knows of the library, and
 * everything a library must provide to stand behind the binding. It compiles as
 * C11 and as C++, and needs no other header of the project.
 *
 * Conventions
 *
 *  1. Requests. Every function queues one request and returns a status at once.
 *     It never waits, and never calls a callback before it has returned.
 *
 *  2. Status. VU_MOM_OK: accepted. VU_MOM_BAD_INPUT: the library can see that an
 *     argument is wrong. VU_MOM_NO_MEMORY: out of memory. Any other value,
 *     VU_MOM_FAILED by habit: refused for another reason (closed, queue full).
 *     After a status other than VU_MOM_OK the request does not exist: nothing was
 *     changed and nothing will be delivered.
 *
 *  3. Threads. Every function is called, and every callback is called, on a thread
 *     that holds the interpreter lock. The library never takes or releases it.
 *     Callbacks come from the event loop that drives the handle.
 *
 *  4. Completion. An accepted request with a callback is completed exactly once.
 *     Requests with a vu_mom_reply_cb get one reply; those that act on a level may
 *     get several, and the last one carries the command's end mark (VU_MOM_END_*).
 *     Scans end with the reply whose end mark is 1. A subscription ends with the
 *     reply of type code VU_MOM_TYPE_SUBSCRIPTION_ENDED. After the completing reply
 *     `privdata` is never used again. A null callback asks for no reply.
 *
 *  5. Records. A vu_mom_reply belongs to the library and is valid, with everything
 *     it points to, only until the callback returns. Callbacks only read it.
 *
 *  6. Messages. A vu_mom_message is the address of a native message that belongs to
 *     the caller and need only live until the function returns: the library copies
 *     what it keeps. No value is reserved; the address may be negative as a number.
 *
 *  7. Arrays belong to the caller and need only live until the function returns,
 *     with one exception: the address array of vu_mom_zrem. It comes from malloc,
 *     and the library takes it over, whatever the status, and calls free on it.
 *     An array may be null where its count is 0. A null array with another count
 *     is VU_MOM_BAD_INPUT, not a crash.
 *
 *  8. Widths. What is a 32-bit integer by meaning is one on every target. Field
 *     numbers are size_t, message addresses intptr_t, the owner 64 bits.
 */
#ifndef VU_MOM_IMPL_H
#define VU_MOM_IMPL_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The store client. Opaque; made and closed by the module that owns VuGlobal. */
typedef struct vu_mom_handle vu_mom_handle;

/* The address of a native message. */
typedef intptr_t vu_mom_message;

enum {
  VU_MOM_OK = 0,
  VU_MOM_FAILED = -1,
  VU_MOM_BAD_INPUT = -2,
  VU_MOM_NO_MEMORY = -3
};

/* End marks: which reply is the last one of a request that acts on a level. */
enum {
  VU_MOM_END_SCAN = 1,
  VU_MOM_END_PEXPIRE = 2,
  VU_MOM_END_DEL_EXPIRE = 3,
  VU_MOM_END_PEXPIRE_FIELD = 4, /* pexpire_field and pexpire_fields */
  VU_MOM_END_PDEL = 5
};

/* Type codes: what happened to an object, and so what `data` points to. */
enum {
  VU_MOM_TYPE_NONE = 0, /* an expired object; in scans the reply that ends them */
  VU_MOM_TYPE_SET = 1,
  VU_MOM_TYPE_INCR = 3,
  VU_MOM_TYPE_HMSET = 4,
  VU_MOM_TYPE_HMSETNX = 6,
  VU_MOM_TYPE_HMUPDATE = 9,
  VU_MOM_TYPE_LPUSH = 10,
  VU_MOM_TYPE_RPUSH = 11,
  VU_MOM_TYPE_LPOP = 12,
  VU_MOM_TYPE_RPOP = 13,
  VU_MOM_TYPE_SADD = 18,
  VU_MOM_TYPE_SREM = 19,
  VU_MOM_TYPE_PUBLISH = 24,
  VU_MOM_TYPE_SUBSCRIPTION_ENDED = 28,
  VU_MOM_TYPE_DELETED = 29,
  VU_MOM_TYPE_LINSERT = 34,
  VU_MOM_TYPE_LSET = 35,
  VU_MOM_TYPE_LREM = 36,
  VU_MOM_TYPE_INDEX = 37, /* a message of which only the key fields are set */
  VU_MOM_TYPE_ZADD = 39,
  VU_MOM_TYPE_ZREM = 40,
  VU_MOM_TYPE_ZREMRANGEBYSCORE = 41,
  VU_MOM_TYPE_ZREMRANGEBYRANK = 42
};

/* One reply or event. The binding reads the three named words only; the details
 * belong to the library and to the module that provides PubSubMsg. */
typedef struct vu_mom_reply {
  unsigned char details[644];
  int32_t type_code; /* VU_MOM_TYPE_* */
  void *data;        /* a native message or result; null: the reply carries none */
  uint32_t unread;
  uint32_t end_mark; /* VU_MOM_END_* on the last reply of a request, else 0 */
} vu_mom_reply;

/* Completes a command. `unused` is never read; `privdata` is the command's own. */
typedef void (*vu_mom_reply_cb)(void *unused, const vu_mom_reply *reply, void *privdata);

/* Delivers one reply of a scan or one event of a subscription. Returns 0, always. */
typedef int32_t (*vu_mom_stream_cb)(void *unused, const vu_mom_reply *reply, void *privdata);

/* Prints the state of the store and of this handle for a person who debugs. */
int32_t vu_mom_debug_show_all(vu_mom_handle *handle);

/* Single values. `flag` is a set of bits, read (and possibly written) during the
 * call only; `owner` is any 64-bit number the application chooses. */
int32_t vu_mom_get(vu_mom_handle *handle, int32_t db, vu_mom_message message,
                   vu_mom_reply_cb callback, void *privdata);
int32_t vu_mom_incr(vu_mom_handle *handle, int32_t db, vu_mom_message message,
                    vu_mom_reply_cb callback, void *privdata);
int32_t vu_mom_setnx(vu_mom_handle *handle, int32_t db, vu_mom_message message,
                     vu_mom_reply_cb callback, void *privdata);
int32_t vu_mom_set_ext(vu_mom_handle *handle, int32_t db, int32_t *flag, vu_mom_message message,
                       vu_mom_reply_cb callback, void *privdata);
int32_t vu_mom_setow_ext(vu_mom_handle *handle, int32_t db, int32_t *flag, vu_mom_message message,
                         vu_mom_reply_cb callback, void *privdata, int64_t owner);
int32_t vu_mom_del_ow_ext(vu_mom_handle *handle, int32_t db, int32_t *flag, vu_mom_message message,
                          vu_mom_reply_cb callback, void *privdata, int64_t owner);
int32_t vu_mom_del(vu_mom_handle *handle, int32_t db, vu_mom_message message,
                   vu_mom_reply_cb callback, void *privdata);
int32_t vu_mom_setnx_noreply(vu_mom_handle *handle, int32_t db, vu_mom_message message,
                             vu_mom_reply_cb callback, void *privdata);

/* Hashes. `tags` are `count` field numbers. */
int32_t vu_mom_hmset(vu_mom_handle *handle, int32_t db, vu_mom_message message, const size_t *tags,
                     int32_t count, vu_mom_reply_cb callback, void *privdata);
int32_t vu_mom_hmsetnx(vu_mom_handle *handle, int32_t db, vu_mom_message message,
                       const size_t *tags, int32_t count, vu_mom_reply_cb callback, void *privdata);
int32_t vu_mom_hmupdate(vu_mom_handle *handle, int32_t db, vu_mom_message message,
                        const size_t *tags, int32_t count, vu_mom_reply_cb callback,
                        void *privdata);
int32_t vu_mom_hmget(vu_mom_handle *handle, int32_t db, vu_mom_message message, const size_t *tags,
                     int32_t count, vu_mom_reply_cb callback, void *privdata);
int32_t vu_mom_hgetall(vu_mom_handle *handle, int32_t db, vu_mom_message message,
                       vu_mom_reply_cb callback, void *privdata);

/* Scans: every object that matches the first `level` key components. */
int32_t vu_mom_scan(vu_mom_handle *handle, int32_t db, vu_mom_message message, uint32_t level,
                    vu_mom_stream_cb callback, void *privdata);
int32_t vu_mom_scan_index(vu_mom_handle *handle, int32_t db, vu_mom_message message, uint32_t level,
                          vu_mom_stream_cb callback, void *privdata);

/* Lists. Negative positions count from the end. `order`: 0 before, 1 after `pivot`. */
int32_t vu_mom_lpush(vu_mom_handle *handle, int32_t db, vu_mom_message message,
                     vu_mom_reply_cb callback, void *privdata);
int32_t vu_mom_rpush(vu_mom_handle *handle, int32_t db, vu_mom_message message,
                     vu_mom_reply_cb callback, void *privdata);
int32_t vu_mom_lpop(vu_mom_handle *handle, int32_t db, vu_mom_message message,
                    vu_mom_reply_cb callback, void *privdata);
int32_t vu_mom_rpop(vu_mom_handle *handle, int32_t db, vu_mom_message message,
                    vu_mom_reply_cb callback, void *privdata);
int32_t vu_mom_llen(vu_mom_handle *handle, int32_t db, vu_mom_message message,
                    vu_mom_reply_cb callback, void *privdata);
int32_t vu_mom_lset(vu_mom_handle *handle, int32_t db, vu_mom_message message, int32_t pos,
                    vu_mom_reply_cb callback, void *privdata);
int32_t vu_mom_lrem(vu_mom_handle *handle, int32_t db, vu_mom_message message, size_t count,
                    vu_mom_reply_cb callback, void *privdata);
int32_t vu_mom_linsert(vu_mom_handle *handle, int32_t db, vu_mom_message pivot,
                       vu_mom_message message, int32_t order, vu_mom_reply_cb callback,
                       void *privdata);
int32_t vu_mom_lrange(vu_mom_handle *handle, int32_t db, vu_mom_message message, int32_t start,
                      int32_t stop, vu_mom_reply_cb callback, void *privdata);

/* Sets. */
int32_t vu_mom_sadd(vu_mom_handle *handle, int32_t db, vu_mom_message message,
                    vu_mom_reply_cb callback, void *privdata);
int32_t vu_mom_srem(vu_mom_handle *handle, int32_t db, vu_mom_message message,
                    vu_mom_reply_cb callback, void *privdata);
int32_t vu_mom_smembers(vu_mom_handle *handle, int32_t db, vu_mom_message message,
                        vu_mom_reply_cb callback, void *privdata);
int32_t vu_mom_scard(vu_mom_handle *handle, int32_t db, vu_mom_message message,
                     vu_mom_reply_cb callback, void *privdata);
int32_t vu_mom_sismember(vu_mom_handle *handle, int32_t db, vu_mom_message message,
                         vu_mom_reply_cb callback, void *privdata);

/* Sorted sets. `scores[i]` belongs to `messages[i]`. vu_mom_zrem takes `messages` over. */
int32_t vu_mom_zadd(vu_mom_handle *handle, int32_t db, const double *scores,
                    const vu_mom_message *messages, int32_t count, vu_mom_reply_cb callback,
                    void *privdata);
int32_t vu_mom_zrem(vu_mom_handle *handle, int32_t db, vu_mom_message *messages, int32_t count,
                    vu_mom_reply_cb callback, void *privdata);
int32_t vu_mom_zcard(vu_mom_handle *handle, int32_t db, vu_mom_message message,
                     vu_mom_reply_cb callback, void *privdata);
int32_t vu_mom_zrank(vu_mom_handle *handle, int32_t db, vu_mom_message message,
                     vu_mom_reply_cb callback, void *privdata);
int32_t vu_mom_zscore(vu_mom_handle *handle, int32_t db, vu_mom_message message,
                      vu_mom_reply_cb callback, void *privdata);
int32_t vu_mom_zcount(vu_mom_handle *handle, int32_t db, vu_mom_message message, double min,
                      double max, vu_mom_reply_cb callback, void *privdata);
int32_t vu_mom_zrange(vu_mom_handle *handle, int32_t db, vu_mom_message message, int32_t start,
                      int32_t stop, vu_mom_reply_cb callback, void *privdata);
int32_t vu_mom_zrangebyscore(vu_mom_handle *handle, int32_t db, vu_mom_message message, double min,
                             double max, vu_mom_reply_cb callback, void *privdata);
int32_t vu_mom_zremrangebyscore(vu_mom_handle *handle, int32_t db, vu_mom_message message,
                                double min, double max, vu_mom_reply_cb callback, void *privdata);
int32_t vu_mom_zremrangebyrank(vu_mom_handle *handle, int32_t db, vu_mom_message message,
                               int32_t start, int32_t stop, vu_mom_reply_cb callback,
                               void *privdata);

/* Lifetimes and deletion, on every object that matches the first `level` key
 * components. A lifetime is `seconds` plus `microseconds`, of one sign. */
int32_t vu_mom_pexpire(vu_mom_handle *handle, int32_t db, vu_mom_message message, uint32_t level,
                       int32_t seconds, int32_t microseconds, vu_mom_reply_cb callback,
                       void *privdata);
int32_t vu_mom_pexpire_field(vu_mom_handle *handle, int32_t db, vu_mom_message message,
                             uint32_t level, int32_t tag, int32_t seconds, int32_t microseconds,
                             vu_mom_reply_cb callback, void *privdata);
int32_t vu_mom_pexpire_fields(vu_mom_handle *handle, int32_t db, vu_mom_message message,
                              uint32_t level, const size_t *tags, int32_t count, int32_t seconds,
                              int32_t microseconds, vu_mom_reply_cb callback, void *privdata);
int32_t vu_mom_del_expire(vu_mom_handle *handle, int32_t db, vu_mom_message message, uint32_t level,
                          vu_mom_reply_cb callback, void *privdata);
int32_t vu_mom_pdel(vu_mom_handle *handle, int32_t db, vu_mom_message message, uint32_t level,
                    vu_mom_reply_cb callback, void *privdata);

/* Subscriptions. The field forms make, or end, one subscription per field number.
 * The unsubscribe forms end the handle's own subscriptions; the end is reported
 * to the callback and privdata given at subscription time, and what is passed to
 * the unsubscribe form in their place is not used. */
int32_t vu_mom_subscribe(vu_mom_handle *handle, int32_t db, vu_mom_message message, uint32_t level,
                         vu_mom_stream_cb callback, void *privdata);
int32_t vu_mom_unsubscribe(vu_mom_handle *handle, int32_t db, vu_mom_message message,
                           uint32_t level, vu_mom_stream_cb callback, void *privdata);
int32_t vu_mom_subscribe_field(vu_mom_handle *handle, int32_t db, vu_mom_message message,
                               uint32_t level, const size_t *tags,
                               const vu_mom_stream_cb *callbacks, void *const *privdata,
                               int32_t count);
int32_t vu_mom_unsubscribe_field(vu_mom_handle *handle, int32_t db, vu_mom_message message,
                                 uint32_t level, const size_t *tags,
                                 const vu_mom_stream_cb *callbacks, void *const *privdata,
                                 int32_t count);

/* Delivers `message` to the subscribers of the object it names; stores nothing. */
int32_t vu_mom_publish(vu_mom_handle *handle, int32_t db, vu_mom_message message,
                       vu_mom_reply_cb callback, void *privdata);

#ifdef __cplusplus
}
#define VU_MOM_ASSERT(condition, text) static_assert(condition, text)
#else
#define VU_MOM_ASSERT(condition, text) _Static_assert(condition, text)
#endif

VU_MOM_ASSERT(offsetof(vu_mom_reply, type_code) == 644, "reply record: type code");
VU_MOM_ASSERT(offsetof(vu_mom_reply, data) == 648, "reply record: data");
VU_MOM_ASSERT(sizeof(void *) != 4 || offsetof(vu_mom_reply, unread) == 652, "reply record: unread");
VU_MOM_ASSERT(sizeof(void *) != 4 || offsetof(vu_mom_reply, end_mark) == 656, "reply record: end");
VU_MOM_ASSERT(sizeof(void *) != 4 || sizeof(size_t) == 4, "32-bit target: field numbers");
VU_MOM_ASSERT(sizeof(vu_mom_message) == sizeof(void *), "a message address is a pointer");
VU_MOM_ASSERT(sizeof(double) == 8, "scores are 64-bit doubles");

#endif
