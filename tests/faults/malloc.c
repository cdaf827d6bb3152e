/* Preloaded before everything else: the malloc of the process, made to fail by faults.c. */
#include <errno.h>
#include <stddef.h>

#include "faults.h"

FAULTS_API Faults faults_of_malloc;

/* The C library's own, under the names that it keeps for this. */
extern void* __libc_malloc(size_t size);
extern void* __libc_calloc(size_t count, size_t size);
extern void* __libc_realloc(void* block, size_t size);

static bool fails(void) {
  if (!faults_count(&faults_of_malloc, FAULTS_MALLOC)) return false;
  errno = ENOMEM;
  return true;
}

FAULTS_API void* malloc(size_t size) { return fails() ? NULL : __libc_malloc(size); }

FAULTS_API void* calloc(size_t count, size_t size) {
  return fails() ? NULL : __libc_calloc(count, size);
}

FAULTS_API void* realloc(void* block, size_t size) {
  return fails() ? NULL : __libc_realloc(block, size);
}
