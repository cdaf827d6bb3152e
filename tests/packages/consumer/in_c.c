/* A program in C that asks the store how many members an empty set has. */
#include <stdio.h>
#include <vu_platform.h>
#include <vu_store.h>

static void on_reply(void *unused, const vu_mom_reply *reply, void *privdata) {
  const vu_platform_payload *payload = reply->data;
  (void)unused;
  if (vu_platform_details_of(reply)->status == VU_MOM_OK) *(int64_t *)privdata = payload->integer;
}

static void on_wake(void *user) { (void)user; }

int main(void) {
  char error[200] = "";
  int64_t came = -1;
  vu_mom_handle *handle = vu_platform_open("embedded:", NULL, on_wake, NULL, error, sizeof(error));
  if (handle == NULL) {
    fprintf(stderr, "%s\n", error);
    return 1;
  }
  if (vu_mom_zadd(handle, 0, NULL, NULL, 0, on_reply, &came) != VU_MOM_OK) return 1;
  vu_platform_deliver(handle, 1);
  printf("%d members came\n", (int)came);
  vu_platform_close(handle);
  vu_platform_free(handle);
  return came == 0 ? 0 : 1;
}
