/* What applications may say to the store beyond the command interface.
 *
 * Compiles as C11 and as C++.
 */
#ifndef VU_STORE_H
#define VU_STORE_H

/* The bits of `flag` of vu_mom_set_ext, vu_mom_setow_ext and vu_mom_del_ow_ext. A
 * set bit without a name here is VU_MOM_BAD_INPUT. The store never writes `flag`. */
enum {
  VU_STORE_QUIET = 1,        /* no change event */
  VU_STORE_KEEP_LIFETIME = 2 /* the object keeps the lifetime it has; no effect on deletions */
};

#endif
