/* The C interface of the extension module vu_thread: how another extension module
 * puts a source of work into an event loop.
 *
 *   const vu_thread_api *api = PyCapsule_Import(VU_THREAD_API_NAME, 0);
 *
 * Conventions
 *
 *  1. Every function requires the interpreter lock, and any Python thread may call it.
 *     Functions of the source are called with the lock held, by the thread that drives
 *     the loop.
 *  2. A source borrows its master: whoever adds a source keeps the master alive until
 *     the source is removed.
 *  3. Whoever changes the uv loop outside one of its callbacks (starts a timer, watches
 *     a socket) calls wake() afterwards, because the loop may be waiting already.
 *
 * Python.h must be included first. Compiles as C11 and as C++.
 */
#ifndef VU_THREAD_API_H
#define VU_THREAD_API_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define VU_THREAD_API_NAME "vu_thread._api"

enum { VU_THREAD_API_VERSION = 1 };

struct uv_loop_s;

/* Something that has work for the loop now and then. Opaque. */
typedef struct vu_thread_source vu_thread_source;

/* Does a bounded piece of the waiting work; returns 1 if more is waiting, else 0.
 * It may run any Python code, and leaves no Python error set. */
typedef int (*vu_thread_deliver)(void* user);

/* Microseconds until the source wants deliver called by the clock; 0: now, -1: never. */
typedef int64_t (*vu_thread_next_due)(void* user);

typedef struct vu_thread_api {
  int32_t version; /* VU_THREAD_API_VERSION; another one has another struct */

  /* vu_thread.VuThreadMaster */
  PyTypeObject* master_type;

  /* Adds a source to the loop of `master`, an instance of master_type. Returns null
   * with a Python error set on failure. */
  vu_thread_source* (*add_source)(PyObject* master, vu_thread_deliver deliver,
                                  vu_thread_next_due next_due, void* user);

  /* Removes and frees the source; its functions are not called again. May be called
   * from inside its own deliver. */
  void (*remove_source)(vu_thread_source* source);

  /* The source has work, or its next_due has become earlier: deliver is called in the
   * next turn. Cheap, and never calls back. */
  void (*wake)(vu_thread_source* source);

  /* The libuv loop of `master`, borrowed. */
  struct uv_loop_s* (*uv_loop)(PyObject* master);

  /* Whether `master` was made by the parent of this process: then nothing that it
   * drives may be touched any more. */
  int (*is_from_parent)(PyObject* master);

  /* At interpreter exit: makes other threads leave the loops they run, and waits for a
   * moment until they have. Releases the lock while waiting. */
  void (*leave_loops)(void);
} vu_thread_api;

#ifdef __cplusplus
}
#endif

#endif
