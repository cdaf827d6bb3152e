/* Makes one kind of operation fail at chosen moments, and writes down which calls of the
 * interpreter a test build of the binding makes. Requires the interpreter lock; one global
 * state. */
#ifndef FAULTS_H
#define FAULTS_H

#include <stdbool.h>

#ifdef __cplusplus
extern "C" {
#endif

#define FAULTS_API __attribute__((visibility("default")))

typedef enum {
  FAULTS_NONE,
  FAULTS_CALLS,  /* calls that the binding makes: the interpreter's functions, malloc, new */
  FAULTS_PYTHON, /* allocations through the interpreter's allocators, whoever makes them */
  FAULTS_MALLOC, /* malloc, calloc and realloc of the whole process; see malloc.c */
} FaultsKind;

/* Operations of the armed kind are counted from 1; those from `first` to `last` fail. */
typedef struct {
  FaultsKind kind;
  long first;
  long last;
  long count;
  long hits;
} Faults;

/* Counts an operation of this kind where it is armed; true where it is to fail. */
static inline bool faults_count(Faults* faults, FaultsKind kind) {
  if (faults->kind != kind) return false;
  ++faults->count;
  if (faults->count < faults->first || faults->count > faults->last) return false;
  ++faults->hits;
  return true;
}

/* For the test build: a call of `function` is about to be made, and goes on at
 * `return_address`. True where it is to fail instead; MemoryError("injected") is set then. */
FAULTS_API bool faults_fail_call(const char* function, void* return_address);

/* The same for malloc and new, without an error set. */
FAULTS_API bool faults_fail_allocation(const char* function, void* return_address);

#ifdef __cplusplus
}
#endif

#endif
