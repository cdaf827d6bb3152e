/* The beginning of a store library that somebody brings along. */
#include <vu_mom_impl.h>

int32_t vu_mom_debug_show_all(vu_mom_handle *handle) {
  return handle == NULL ? VU_MOM_FAILED : VU_MOM_OK;
}
