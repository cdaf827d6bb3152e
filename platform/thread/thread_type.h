// vu_thread.Thread: one scheduled piece of work in a loop, as Python sees it.
#pragma once

#include <cstdint>

#include "python/error.h"
#include "vu_mom_types.h"

namespace vu_thread {

class Loop;
struct Work;
enum class Kind : std::uint8_t;

// `func` and `args` are there as long as the work is active and null afterwards, so that a
// Thread that somebody keeps does not keep what it called.
struct Thread {
  PyObject_HEAD PyObject* func;
  PyObject* args;  // a tuple
  Work* work;      // owned; see loop.h
};
static_assert(sizeof(Thread) == sizeof(ThreadObject), "the size that others are compiled with");

extern PyTypeObject thread_type;

// Raises.
void prepare_thread_type();

inline Thread* as_thread(py::Borrowed object) { return reinterpret_cast<Thread*>(object.get()); }
inline PyObject* as_object(Thread* thread) { return reinterpret_cast<PyObject*>(thread); }

// A Thread for new work that is in no list of its loop yet. Raises.
py::Owned new_thread(Loop& loop, Kind kind, py::Borrowed func, py::Borrowed args);

}  // namespace vu_thread
