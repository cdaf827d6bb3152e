/* The blocks of the watched library; the tests' side of it is in recorder.h. */
#ifndef ALLOCATIONS_H
#define ALLOCATIONS_H

/* The recorder owns `block` from now on, as vu_mom_zrem does with its array. Freeing it in
 * the watched library is wrong from here. Null is nothing to take over. */
void allocations_take(void* block);

/* Frees what was taken over. */
void allocations_free_taken(void);

#endif
