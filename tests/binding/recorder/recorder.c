#include "recorder.h"

#include <stdarg.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>

#include "allocations.h"
#include "vu_mom_impl.h"

/* The library exports its functions; vu_mom_impl.h leaves visibility to who builds it. */
#pragma GCC visibility push(default)

static char* calls;
static size_t length;
static size_t capacity;
static int32_t answer;

void recorder_clear(void) {
  length = 0;
  allocations_free_taken();
}

void recorder_answer(int32_t status) { answer = status; }

const char* recorder_calls(void) {
  if (length == 0) return "";
  return calls;
}

__attribute__((format(printf, 1, 2))) static void put(const char* format, ...) {
  va_list arguments;
  if (capacity - length < 256) {
    capacity = capacity * 2 + 4096;
    calls = realloc(calls, capacity);
    if (calls == NULL) abort();
  }
  va_start(arguments, format);
  const int written = vsnprintf(calls + length, capacity - length, format, arguments);
  va_end(arguments);
  if (written < 0 || (size_t)written >= capacity - length) abort();
  length += (size_t)written;
}

static void begin(const char* function, const vu_mom_handle* handle, int32_t db) {
  put("%s handle=%llu db=%ld", function, (unsigned long long)(uintptr_t)handle, (long)db);
}

static int32_t finish(void) {
  put("\n");
  return answer;
}

static void put_integer(const char* name, long long value) { put(" %s=%lld", name, value); }
static void put_unsigned(const char* name, unsigned long long value) {
  put(" %s=%llu", name, value);
}
static void put_double(const char* name, double value) { put(" %s=%a", name, value); }

static void put_address(const char* name, uintptr_t value) {
  if (value == 0)
    put(" %s=null", name);
  else
    put(" %s=%llu", name, (unsigned long long)value);
}

static void put_flag(const int32_t* flag) {
  if (flag == NULL)
    put(" flag=null");
  else
    put(" flag=&%ld", (long)*flag);
}

static void put_reply(vu_mom_reply_cb callback, void* privdata) {
  put_address("callback", (uintptr_t)callback);
  put_address("context", (uintptr_t)privdata);
}

static void put_stream(vu_mom_stream_cb callback, void* privdata) {
  put_address("callback", (uintptr_t)callback);
  put_address("context", (uintptr_t)privdata);
}

/* True where there are elements to write; writes null otherwise. */
static bool open_array(const char* name, const void* array) {
  put(array == NULL ? " %s=null" : " %s=[", name);
  return array != NULL;
}

static void close_array(void) { put("]"); }

static void put_tags(const size_t* tags, int32_t count) {
  if (!open_array("tags", tags)) return;
  for (int32_t i = 0; i < count; ++i) put("%s%zu", i == 0 ? "" : " ", tags[i]);
  close_array();
}

static void put_messages(const vu_mom_message* messages, int32_t count) {
  if (!open_array("messages", messages)) return;
  for (int32_t i = 0; i < count; ++i) put("%s%lld", i == 0 ? "" : " ", (long long)messages[i]);
  close_array();
}

static void put_scores(const double* scores, int32_t count) {
  if (!open_array("scores", scores)) return;
  for (int32_t i = 0; i < count; ++i) put("%s%a", i == 0 ? "" : " ", scores[i]);
  close_array();
}

static void put_callbacks(const vu_mom_stream_cb* callbacks, int32_t count) {
  if (!open_array("callbacks", callbacks)) return;
  for (int32_t i = 0; i < count; ++i)
    put("%s%llu", i == 0 ? "" : " ", (unsigned long long)(uintptr_t)callbacks[i]);
  close_array();
}

static void put_contexts(void* const* contexts, int32_t count) {
  if (!open_array("contexts", contexts)) return;
  for (int32_t i = 0; i < count; ++i)
    put("%s%llu", i == 0 ? "" : " ", (unsigned long long)(uintptr_t)contexts[i]);
  close_array();
}

/* handle, db, message, callback, privdata: what most functions take and no more. */
static int32_t plain(const char* function, vu_mom_handle* handle, int32_t db,
                     vu_mom_message message, vu_mom_reply_cb callback, void* privdata) {
  begin(function, handle, db);
  put_integer("message", message);
  put_reply(callback, privdata);
  return finish();
}

static int32_t owned(const char* function, vu_mom_handle* handle, int32_t db, const int32_t* flag,
                     vu_mom_message message, vu_mom_reply_cb callback, void* privdata,
                     int64_t owner) {
  begin(function, handle, db);
  put_flag(flag);
  put_integer("message", message);
  put_reply(callback, privdata);
  put_integer("owner", owner);
  return finish();
}

static int32_t tagged(const char* function, vu_mom_handle* handle, int32_t db,
                      vu_mom_message message, const size_t* tags, int32_t count,
                      vu_mom_reply_cb callback, void* privdata) {
  begin(function, handle, db);
  put_integer("message", message);
  put_tags(tags, count);
  put_integer("count", count);
  put_reply(callback, privdata);
  return finish();
}

static int32_t leveled(const char* function, vu_mom_handle* handle, int32_t db,
                       vu_mom_message message, uint32_t level, vu_mom_stream_cb callback,
                       void* privdata) {
  begin(function, handle, db);
  put_integer("message", message);
  put_unsigned("level", level);
  put_stream(callback, privdata);
  return finish();
}

static int32_t leveled_once(const char* function, vu_mom_handle* handle, int32_t db,
                            vu_mom_message message, uint32_t level, vu_mom_reply_cb callback,
                            void* privdata) {
  begin(function, handle, db);
  put_integer("message", message);
  put_unsigned("level", level);
  put_reply(callback, privdata);
  return finish();
}

static int32_t ranked(const char* function, vu_mom_handle* handle, int32_t db,
                      vu_mom_message message, int32_t start, int32_t stop, vu_mom_reply_cb callback,
                      void* privdata) {
  begin(function, handle, db);
  put_integer("message", message);
  put_integer("start", start);
  put_integer("stop", stop);
  put_reply(callback, privdata);
  return finish();
}

static int32_t scored(const char* function, vu_mom_handle* handle, int32_t db,
                      vu_mom_message message, double min, double max, vu_mom_reply_cb callback,
                      void* privdata) {
  begin(function, handle, db);
  put_integer("message", message);
  put_double("min", min);
  put_double("max", max);
  put_reply(callback, privdata);
  return finish();
}

static int32_t fields(const char* function, vu_mom_handle* handle, int32_t db,
                      vu_mom_message message, uint32_t level, const size_t* tags,
                      const vu_mom_stream_cb* callbacks, void* const* privdata, int32_t count) {
  begin(function, handle, db);
  put_integer("message", message);
  put_unsigned("level", level);
  put_tags(tags, count);
  put_callbacks(callbacks, count);
  put_contexts(privdata, count);
  put_integer("count", count);
  return finish();
}

int32_t vu_mom_debug_show_all(vu_mom_handle* handle) {
  put("vu_mom_debug_show_all handle=%llu", (unsigned long long)(uintptr_t)handle);
  return finish();
}

int32_t vu_mom_get(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                   vu_mom_reply_cb callback, void* privdata) {
  return plain("vu_mom_get", handle, db, message, callback, privdata);
}

int32_t vu_mom_incr(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                    vu_mom_reply_cb callback, void* privdata) {
  return plain("vu_mom_incr", handle, db, message, callback, privdata);
}

int32_t vu_mom_setnx(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                     vu_mom_reply_cb callback, void* privdata) {
  return plain("vu_mom_setnx", handle, db, message, callback, privdata);
}

int32_t vu_mom_set_ext(vu_mom_handle* handle, int32_t db, int32_t* flag, vu_mom_message message,
                       vu_mom_reply_cb callback, void* privdata) {
  begin("vu_mom_set_ext", handle, db);
  put_flag(flag);
  put_integer("message", message);
  put_reply(callback, privdata);
  return finish();
}

int32_t vu_mom_setow_ext(vu_mom_handle* handle, int32_t db, int32_t* flag, vu_mom_message message,
                         vu_mom_reply_cb callback, void* privdata, int64_t owner) {
  return owned("vu_mom_setow_ext", handle, db, flag, message, callback, privdata, owner);
}

int32_t vu_mom_del_ow_ext(vu_mom_handle* handle, int32_t db, int32_t* flag, vu_mom_message message,
                          vu_mom_reply_cb callback, void* privdata, int64_t owner) {
  return owned("vu_mom_del_ow_ext", handle, db, flag, message, callback, privdata, owner);
}

int32_t vu_mom_del(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                   vu_mom_reply_cb callback, void* privdata) {
  return plain("vu_mom_del", handle, db, message, callback, privdata);
}

int32_t vu_mom_setnx_noreply(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                             vu_mom_reply_cb callback, void* privdata) {
  return plain("vu_mom_setnx_noreply", handle, db, message, callback, privdata);
}

int32_t vu_mom_hmset(vu_mom_handle* handle, int32_t db, vu_mom_message message, const size_t* tags,
                     int32_t count, vu_mom_reply_cb callback, void* privdata) {
  return tagged("vu_mom_hmset", handle, db, message, tags, count, callback, privdata);
}

int32_t vu_mom_hmsetnx(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                       const size_t* tags, int32_t count, vu_mom_reply_cb callback,
                       void* privdata) {
  return tagged("vu_mom_hmsetnx", handle, db, message, tags, count, callback, privdata);
}

int32_t vu_mom_hmupdate(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                        const size_t* tags, int32_t count, vu_mom_reply_cb callback,
                        void* privdata) {
  return tagged("vu_mom_hmupdate", handle, db, message, tags, count, callback, privdata);
}

int32_t vu_mom_hmget(vu_mom_handle* handle, int32_t db, vu_mom_message message, const size_t* tags,
                     int32_t count, vu_mom_reply_cb callback, void* privdata) {
  return tagged("vu_mom_hmget", handle, db, message, tags, count, callback, privdata);
}

int32_t vu_mom_hgetall(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                       vu_mom_reply_cb callback, void* privdata) {
  return plain("vu_mom_hgetall", handle, db, message, callback, privdata);
}

int32_t vu_mom_scan(vu_mom_handle* handle, int32_t db, vu_mom_message message, uint32_t level,
                    vu_mom_stream_cb callback, void* privdata) {
  return leveled("vu_mom_scan", handle, db, message, level, callback, privdata);
}

int32_t vu_mom_scan_index(vu_mom_handle* handle, int32_t db, vu_mom_message message, uint32_t level,
                          vu_mom_stream_cb callback, void* privdata) {
  return leveled("vu_mom_scan_index", handle, db, message, level, callback, privdata);
}

int32_t vu_mom_lpush(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                     vu_mom_reply_cb callback, void* privdata) {
  return plain("vu_mom_lpush", handle, db, message, callback, privdata);
}

int32_t vu_mom_rpush(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                     vu_mom_reply_cb callback, void* privdata) {
  return plain("vu_mom_rpush", handle, db, message, callback, privdata);
}

int32_t vu_mom_lpop(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                    vu_mom_reply_cb callback, void* privdata) {
  return plain("vu_mom_lpop", handle, db, message, callback, privdata);
}

int32_t vu_mom_rpop(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                    vu_mom_reply_cb callback, void* privdata) {
  return plain("vu_mom_rpop", handle, db, message, callback, privdata);
}

int32_t vu_mom_llen(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                    vu_mom_reply_cb callback, void* privdata) {
  return plain("vu_mom_llen", handle, db, message, callback, privdata);
}

int32_t vu_mom_lset(vu_mom_handle* handle, int32_t db, vu_mom_message message, int32_t pos,
                    vu_mom_reply_cb callback, void* privdata) {
  begin("vu_mom_lset", handle, db);
  put_integer("message", message);
  put_integer("pos", pos);
  put_reply(callback, privdata);
  return finish();
}

int32_t vu_mom_lrem(vu_mom_handle* handle, int32_t db, vu_mom_message message, size_t count,
                    vu_mom_reply_cb callback, void* privdata) {
  begin("vu_mom_lrem", handle, db);
  put_integer("message", message);
  put_unsigned("count", count);
  put_reply(callback, privdata);
  return finish();
}

int32_t vu_mom_linsert(vu_mom_handle* handle, int32_t db, vu_mom_message pivot,
                       vu_mom_message message, int32_t order, vu_mom_reply_cb callback,
                       void* privdata) {
  begin("vu_mom_linsert", handle, db);
  put_integer("pivot", pivot);
  put_integer("message", message);
  put_integer("order", order);
  put_reply(callback, privdata);
  return finish();
}

int32_t vu_mom_lrange(vu_mom_handle* handle, int32_t db, vu_mom_message message, int32_t start,
                      int32_t stop, vu_mom_reply_cb callback, void* privdata) {
  return ranked("vu_mom_lrange", handle, db, message, start, stop, callback, privdata);
}

int32_t vu_mom_sadd(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                    vu_mom_reply_cb callback, void* privdata) {
  return plain("vu_mom_sadd", handle, db, message, callback, privdata);
}

int32_t vu_mom_srem(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                    vu_mom_reply_cb callback, void* privdata) {
  return plain("vu_mom_srem", handle, db, message, callback, privdata);
}

int32_t vu_mom_smembers(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                        vu_mom_reply_cb callback, void* privdata) {
  return plain("vu_mom_smembers", handle, db, message, callback, privdata);
}

int32_t vu_mom_scard(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                     vu_mom_reply_cb callback, void* privdata) {
  return plain("vu_mom_scard", handle, db, message, callback, privdata);
}

int32_t vu_mom_sismember(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                         vu_mom_reply_cb callback, void* privdata) {
  return plain("vu_mom_sismember", handle, db, message, callback, privdata);
}

int32_t vu_mom_zadd(vu_mom_handle* handle, int32_t db, const double* scores,
                    const vu_mom_message* messages, int32_t count, vu_mom_reply_cb callback,
                    void* privdata) {
  begin("vu_mom_zadd", handle, db);
  put_scores(scores, count);
  put_messages(messages, count);
  put_integer("count", count);
  put_reply(callback, privdata);
  return finish();
}

int32_t vu_mom_zrem(vu_mom_handle* handle, int32_t db, vu_mom_message* messages, int32_t count,
                    vu_mom_reply_cb callback, void* privdata) {
  begin("vu_mom_zrem", handle, db);
  put_messages(messages, count);
  put_integer("count", count);
  put_reply(callback, privdata);
  allocations_take(messages);
  return finish();
}

int32_t vu_mom_zcard(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                     vu_mom_reply_cb callback, void* privdata) {
  return plain("vu_mom_zcard", handle, db, message, callback, privdata);
}

int32_t vu_mom_zrank(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                     vu_mom_reply_cb callback, void* privdata) {
  return plain("vu_mom_zrank", handle, db, message, callback, privdata);
}

int32_t vu_mom_zscore(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                      vu_mom_reply_cb callback, void* privdata) {
  return plain("vu_mom_zscore", handle, db, message, callback, privdata);
}

int32_t vu_mom_zcount(vu_mom_handle* handle, int32_t db, vu_mom_message message, double min,
                      double max, vu_mom_reply_cb callback, void* privdata) {
  return scored("vu_mom_zcount", handle, db, message, min, max, callback, privdata);
}

int32_t vu_mom_zrange(vu_mom_handle* handle, int32_t db, vu_mom_message message, int32_t start,
                      int32_t stop, vu_mom_reply_cb callback, void* privdata) {
  return ranked("vu_mom_zrange", handle, db, message, start, stop, callback, privdata);
}

int32_t vu_mom_zrangebyscore(vu_mom_handle* handle, int32_t db, vu_mom_message message, double min,
                             double max, vu_mom_reply_cb callback, void* privdata) {
  return scored("vu_mom_zrangebyscore", handle, db, message, min, max, callback, privdata);
}

int32_t vu_mom_zremrangebyscore(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                                double min, double max, vu_mom_reply_cb callback, void* privdata) {
  return scored("vu_mom_zremrangebyscore", handle, db, message, min, max, callback, privdata);
}

int32_t vu_mom_zremrangebyrank(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                               int32_t start, int32_t stop, vu_mom_reply_cb callback,
                               void* privdata) {
  return ranked("vu_mom_zremrangebyrank", handle, db, message, start, stop, callback, privdata);
}

int32_t vu_mom_pexpire(vu_mom_handle* handle, int32_t db, vu_mom_message message, uint32_t level,
                       int32_t seconds, int32_t microseconds, vu_mom_reply_cb callback,
                       void* privdata) {
  begin("vu_mom_pexpire", handle, db);
  put_integer("message", message);
  put_unsigned("level", level);
  put_integer("seconds", seconds);
  put_integer("microseconds", microseconds);
  put_reply(callback, privdata);
  return finish();
}

int32_t vu_mom_pexpire_field(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                             uint32_t level, int32_t tag, int32_t seconds, int32_t microseconds,
                             vu_mom_reply_cb callback, void* privdata) {
  begin("vu_mom_pexpire_field", handle, db);
  put_integer("message", message);
  put_unsigned("level", level);
  put_integer("tag", tag);
  put_integer("seconds", seconds);
  put_integer("microseconds", microseconds);
  put_reply(callback, privdata);
  return finish();
}

int32_t vu_mom_pexpire_fields(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                              uint32_t level, const size_t* tags, int32_t count, int32_t seconds,
                              int32_t microseconds, vu_mom_reply_cb callback, void* privdata) {
  begin("vu_mom_pexpire_fields", handle, db);
  put_integer("message", message);
  put_unsigned("level", level);
  put_tags(tags, count);
  put_integer("count", count);
  put_integer("seconds", seconds);
  put_integer("microseconds", microseconds);
  put_reply(callback, privdata);
  return finish();
}

int32_t vu_mom_del_expire(vu_mom_handle* handle, int32_t db, vu_mom_message message, uint32_t level,
                          vu_mom_reply_cb callback, void* privdata) {
  return leveled_once("vu_mom_del_expire", handle, db, message, level, callback, privdata);
}

int32_t vu_mom_pdel(vu_mom_handle* handle, int32_t db, vu_mom_message message, uint32_t level,
                    vu_mom_reply_cb callback, void* privdata) {
  return leveled_once("vu_mom_pdel", handle, db, message, level, callback, privdata);
}

int32_t vu_mom_subscribe(vu_mom_handle* handle, int32_t db, vu_mom_message message, uint32_t level,
                         vu_mom_stream_cb callback, void* privdata) {
  return leveled("vu_mom_subscribe", handle, db, message, level, callback, privdata);
}

int32_t vu_mom_unsubscribe(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                           uint32_t level, vu_mom_stream_cb callback, void* privdata) {
  return leveled("vu_mom_unsubscribe", handle, db, message, level, callback, privdata);
}

int32_t vu_mom_subscribe_field(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                               uint32_t level, const size_t* tags,
                               const vu_mom_stream_cb* callbacks, void* const* privdata,
                               int32_t count) {
  return fields("vu_mom_subscribe_field", handle, db, message, level, tags, callbacks, privdata,
                count);
}

int32_t vu_mom_unsubscribe_field(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                                 uint32_t level, const size_t* tags,
                                 const vu_mom_stream_cb* callbacks, void* const* privdata,
                                 int32_t count) {
  return fields("vu_mom_unsubscribe_field", handle, db, message, level, tags, callbacks, privdata,
                count);
}

int32_t vu_mom_publish(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                       vu_mom_reply_cb callback, void* privdata) {
  return plain("vu_mom_publish", handle, db, message, callback, privdata);
}

#pragma GCC visibility pop
