/* The interface from plain C: opens a store, makes calls, delivers, closes. Messages are
 * made by C++ code; what C alone can have is refused, and that is checked. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "vu_platform.h"
#include "vu_store.h"

static int failures;

static void expect(int condition, const char *what) {
  if (!condition) {
    fprintf(stderr, "c_test: not so: %s\n", what);
    ++failures;
  }
}

static int replies;

static void on_reply(void *unused, const vu_mom_reply *reply, void *privdata) {
  const vu_platform_details *details = vu_platform_details_of(reply);
  const vu_platform_payload *payload = reply->data;
  (void)unused;
  int *count = privdata;
  ++*count;
  expect(count == &replies, "privdata comes back");
  expect(vu_platform_is_record((intptr_t)reply), "the record is known while it is delivered");
  expect(vu_platform_is_payload((intptr_t)payload), "so is its payload");
  expect(details->status == VU_MOM_OK && details->error[0] == '\0', "no error");
  expect(details->db == 3, "the database");
  expect(payload->kind == VU_PLATFORM_PAYLOAD_INTEGER && payload->integer == 0, "0 members");
}

static void on_closed(void *unused, const vu_mom_reply *reply, void *privdata) {
  (void)unused;
  (void)privdata;
  ++replies;
  expect(vu_platform_details_of(reply)->status == VU_MOM_FAILED, "closed: an error");
  expect(vu_platform_details_of(reply)->error[0] != '\0', "closed: a text");
  expect(reply->data == NULL, "closed: no data");
}

static void on_wake(void *user) { ++*(int *)user; }

int main(void) {
  char error[64] = "";
  int wakes = 0;
  int32_t flag = 4;
  const double score = 1.0;
  vu_mom_message no_message = 0;
  vu_mom_message *addresses = NULL;
  vu_mom_handle *handle = NULL;
  vu_platform_stats stats;

  expect(vu_platform_open("paper:", NULL, NULL, NULL, error, sizeof(error)) == NULL,
         "an unknown store is refused");
  expect(strstr(error, "paper:") != NULL, "and named");
  expect(vu_platform_open(NULL, NULL, NULL, NULL, NULL, 0) == NULL, "no store");

  expect(vu_platform_store_text("redis://a:b@c", error, sizeof(error)) == VU_MOM_OK &&
             strcmp(error, "redis://a:***@c") == 0,
         "a password is hidden");
  expect(vu_platform_store_text("redis://a:b@c", error, 15) == VU_MOM_BAD_INPUT, "in 15 bytes");
  expect(vu_platform_store_text("redis://a:b@c", error, 16) == VU_MOM_OK, "in 16 bytes");

  handle = vu_platform_open("embedded:c", NULL, on_wake, &wakes, error, sizeof(error));
  expect(handle != NULL, "a store opens");
  expect(vu_platform_next_due(handle) == -1, "nothing is due");

  expect(vu_mom_get(handle, 0, no_message, NULL, NULL) == VU_MOM_BAD_INPUT, "null message");
  expect(vu_mom_get(handle, 0, (vu_mom_message)&flag, NULL, NULL) == VU_MOM_BAD_INPUT,
         "an address that is no live message");
  expect(vu_mom_set_ext(handle, 0, &flag, no_message, NULL, NULL) == VU_MOM_BAD_INPUT, "set");
  expect(vu_mom_zadd(handle, 0, NULL, NULL, 1, NULL, NULL) == VU_MOM_BAD_INPUT, "null arrays");
  expect(vu_mom_zadd(handle, 0, &score, &no_message, -1, NULL, NULL) == VU_MOM_BAD_INPUT,
         "a negative count");
  expect(vu_mom_zadd(handle, -1, NULL, NULL, 0, NULL, NULL) == VU_MOM_BAD_INPUT, "negative db");
  addresses = malloc(2 * sizeof(*addresses));
  addresses[0] = addresses[1] = 0;
  expect(vu_mom_zrem(handle, 0, addresses, 2, NULL, NULL) == VU_MOM_BAD_INPUT,
         "null messages; the array is taken over");

  expect(vu_mom_zadd(handle, 3, NULL, NULL, 0, on_reply, &replies) == VU_MOM_OK, "no members");
  expect(wakes == 1 && replies == 0, "nothing is delivered inside a call");
  expect(vu_mom_zrem(handle, 3, NULL, 0, on_reply, &replies) == VU_MOM_OK, "none to remove");
  expect(wakes == 1, "told once");
  expect(vu_platform_deliver(handle, 1) == 1 && replies == 1, "one of two");
  expect(vu_platform_deliver(handle, 10) == 0 && replies == 2, "the other");
  expect(vu_mom_debug_show_all(handle) == VU_MOM_OK, "the picture");

  expect(vu_mom_zadd(handle, 3, NULL, NULL, 0, on_closed, NULL) == VU_MOM_OK, "one more");
  vu_platform_close(handle);
  vu_platform_close(handle);
  expect(vu_mom_zadd(handle, 3, NULL, NULL, 0, NULL, NULL) == VU_MOM_FAILED, "closed");
  expect(vu_mom_debug_show_all(handle) == VU_MOM_FAILED, "closed");
  expect(vu_platform_deliver(handle, 10) == 0 && replies == 3, "completed all the same");
  vu_platform_stats_of(handle, &stats);
  expect(stats.commands == 3 && stats.replies == 3 && stats.errors == 1, "what was done");
  expect(stats.refused == 9 && stats.events == 0 && stats.waiting == 0, "what was not");
  vu_platform_free(handle);
  expect(vu_mom_zadd(NULL, 3, NULL, NULL, 0, NULL, NULL) == VU_MOM_FAILED, "no handle");

  if (failures == 0) printf("c_test: passed\n");
  return failures == 0 ? 0 : 1;
}
