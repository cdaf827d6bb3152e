#define _GNU_SOURCE
#define PY_SSIZE_T_CLEAN
#include "faults.h"

#include <Python.h>
#include <dlfcn.h>

#include "vu_mom_impl.h"

enum { TRACE_LIMIT = 65536 };

static Faults faults;
static uintptr_t trace[TRACE_LIMIT]; /* return addresses, relative to their library */
static const char* trace_libraries[TRACE_LIMIT];
static int trace_length;
static bool tracing;

/* --- calls of the test build ---------------------------------------------------------- */

static void write_down(void* address) {
  Dl_info library;
  if (dladdr(address, &library) == 0) abort();
  if (trace_length >= TRACE_LIMIT) {
    ++trace_length; /* whoever wants to know them all is told */
    return;
  }
  trace_libraries[trace_length] = library.dli_fname;
  trace[trace_length++] = (uintptr_t)address - (uintptr_t)library.dli_fbase;
}

bool faults_fail_allocation(const char* function, void* return_address) {
  (void)function;
  if (!tracing) return false;
  write_down(return_address);
  return faults_count(&faults, FAULTS_CALLS);
}

bool faults_fail_call(const char* function, void* return_address) {
  if (!faults_fail_allocation(function, return_address)) return false;
  PyErr_SetString(PyExc_MemoryError, "injected");
  return true;
}

/* --- the interpreter's allocators ----------------------------------------------------- */

static const PyMemAllocatorDomain kDomains[] = {PYMEM_DOMAIN_RAW, PYMEM_DOMAIN_MEM,
                                                PYMEM_DOMAIN_OBJ};
static PyMemAllocatorEx originals[3];

static void* hook_malloc(void* original, size_t size) {
  PyMemAllocatorEx* below = original;
  return faults_count(&faults, FAULTS_PYTHON) ? NULL : below->malloc(below->ctx, size);
}

static void* hook_calloc(void* original, size_t count, size_t size) {
  PyMemAllocatorEx* below = original;
  return faults_count(&faults, FAULTS_PYTHON) ? NULL : below->calloc(below->ctx, count, size);
}

static void* hook_realloc(void* original, void* block, size_t size) {
  PyMemAllocatorEx* below = original;
  return faults_count(&faults, FAULTS_PYTHON) ? NULL : below->realloc(below->ctx, block, size);
}

static void hook_free(void* original, void* block) {
  PyMemAllocatorEx* below = original;
  below->free(below->ctx, block);
}

static void hook_allocators(void) {
  for (int i = 0; i < 3; ++i) {
    PyMem_GetAllocator(kDomains[i], &originals[i]);
    PyMemAllocatorEx hook = {&originals[i], hook_malloc, hook_calloc, hook_realloc, hook_free};
    PyMem_SetAllocator(kDomains[i], &hook);
  }
}

static void unhook_allocators(void) {
  for (int i = 0; i < 3; ++i) PyMem_SetAllocator(kDomains[i], &originals[i]);
}

/* --- the interface of the tests ------------------------------------------------------- */

static Faults* malloc_faults(void) { return dlsym(RTLD_DEFAULT, "faults_of_malloc"); }

static void arm(FaultsKind kind, long first, long last) {
  const Faults armed = {kind, first, last, 0, 0};
  trace_length = 0;
  tracing = true;
  faults = armed;
  if (kind == FAULTS_PYTHON) hook_allocators();
  if (kind == FAULTS_MALLOC) *malloc_faults() = armed;
}

static void disarm(void) {
  if (faults.kind == FAULTS_PYTHON) unhook_allocators();
  if (faults.kind == FAULTS_MALLOC) {
    faults = *malloc_faults();
    malloc_faults()->kind = FAULTS_NONE;
  }
  faults.kind = FAULTS_NONE;
  tracing = false;
}

/* callable(*arguments), armed. */
FAULTS_API PyObject* faults_run(int kind, long first, long last, PyObject* callable,
                                PyObject* arguments, PyObject* keywords) {
  PyObject* dict = keywords == Py_None ? NULL : keywords;
  arm((FaultsKind)kind, first, last);
  PyObject* result = PyObject_Call(callable, arguments, dict);
  disarm();
  /* The interpreter's functions written in Python lose errors where memory is short. */
  if (result == NULL && PyErr_Occurred() == NULL)
    PyErr_Format(PyExc_SystemError, "%R returned NULL without setting an exception", callable);
  return result;
}

/* A callback of the binding, armed. An error that it leaves set is raised by the caller. */
FAULTS_API void faults_deliver(int kind, long first, long last, uintptr_t callback, int is_stream,
                               const vu_mom_reply* reply, void* context) {
  const vu_mom_reply_cb reply_callback = (vu_mom_reply_cb)callback;
  const vu_mom_stream_cb stream_callback = (vu_mom_stream_cb)callback;
  int32_t answer = 0;
  arm((FaultsKind)kind, first, last);
  if (is_stream != 0) {
    answer = stream_callback(NULL, reply, context);
  } else {
    reply_callback(NULL, reply, context);
  }
  disarm();
  if (answer != 0) PyErr_Format(PyExc_AssertionError, "the callback answered %d", (int)answer);
}

FAULTS_API long faults_counted(void) { return faults.count; }
FAULTS_API long faults_hit(void) { return faults.hits; }
FAULTS_API int faults_traced(void) { return trace_length; } /* may be more than the trace holds */
FAULTS_API int faults_trace_limit(void) { return TRACE_LIMIT; }
FAULTS_API const uintptr_t* faults_trace(void) { return trace; }
FAULTS_API const char* const* faults_trace_libraries(void) { return trace_libraries; }
FAULTS_API int faults_have_malloc(void) { return malloc_faults() != NULL; }

/* --- a type in C whose base is a type of the binding ------------------------------------ */

static PyTypeObject finalizable = {.ob_base = {PyObject_HEAD_INIT(NULL) 0},
                                   .tp_name = "faults.Finalizable"};
static int finalized;
static int resurrecting;
static PyObject* resurrected; /* owned; null where nothing was */

static void finalize(PyObject* self) {
  ++finalized;
  if (resurrecting == 0) return;
  Py_INCREF(self);
  Py_XDECREF(resurrected);
  resurrected = self;
}

/* A static type with a finaliser, derived from `base` the first time this is called. */
FAULTS_API PyObject* faults_finalizable(PyObject* base) {
  PyTypeObject* type = &finalizable;
  if (type->tp_base == NULL) {
    type->tp_base = (PyTypeObject*)base;
    type->tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_HAVE_FINALIZE;
    type->tp_finalize = finalize;
    if (PyType_Ready(type) < 0) return NULL;
  }
  Py_INCREF((PyObject*)type);
  return (PyObject*)type;
}

FAULTS_API int faults_finalized(void) { return finalized; }
FAULTS_API void faults_resurrect(int yes) { resurrecting = yes; }

/* Gives away what the last finaliser brought back. */
FAULTS_API PyObject* faults_resurrected(void) {
  PyObject* found = resurrected;
  resurrected = NULL;
  if (found == NULL) PyErr_SetString(PyExc_LookupError, "nothing was brought back");
  return found;
}
