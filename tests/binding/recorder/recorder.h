/* A store library that stores nothing: it writes down every call and answers what it is
 * told to. It exports all of vu_mom_impl.h, and for the tests the functions below.
 *
 * Everything here is called with the interpreter lock held and keeps one global state.
 */
#ifndef RECORDER_H
#define RECORDER_H

#include <stddef.h>
#include <stdint.h>

#define RECORDER_API __attribute__((visibility("default")))

/* Forgets all calls and frees the arrays that were taken over. */
RECORDER_API void recorder_clear(void);

/* The status that every vu_mom_* function answers from now on. */
RECORDER_API void recorder_answer(int32_t status);

/* The calls since recorder_clear, one per line: the function's name, then name=value for each
 * parameter in order. Integers, addresses and pointers are decimal, doubles hexadecimal
 * floats, arrays [a b c], a null pointer null. What `flag` points to stands as &value. The
 * text is valid until the next call of any function. */
RECORDER_API const char* recorder_calls(void);

/* Watches malloc, calloc and free as one loaded library calls them: the first whose file
 * name ends with `suffix`. Returns how many of its references were redirected. */
RECORDER_API int recorder_watch(const char* suffix);

/* Watched blocks that were neither freed nor taken over yet, and their bytes; those that
 * vu_mom_zrem has taken over; and how often something was freed that the watched library
 * did not, or no longer, own, or handed over that did not come from malloc. */
RECORDER_API int recorder_live_blocks(void);
RECORDER_API size_t recorder_live_bytes(void);
RECORDER_API int recorder_taken_blocks(void);
RECORDER_API int recorder_wrong_frees(void);

/* How many blocks the watched library has asked for since it is watched. */
RECORDER_API int recorder_allocations(void);

/* The n-th allocation from now on (1 is the next) fails; 0: none does. */
RECORDER_API void recorder_fail_allocation(int n);

/* Frees the watched blocks that are still there and clears the count of wrong frees. */
RECORDER_API void recorder_free_blocks(void);

#endif
