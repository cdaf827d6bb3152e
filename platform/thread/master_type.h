// vu_thread.VuThreadMaster: the event loop as Python sees it.
#pragma once

#include "python/error.h"
#include "vu_mom_types.h"

namespace vu_thread {

class Loop;

struct Master {
  PyObject_HEAD Loop* loop;  // owned; there from the allocation to the end
  PyObject* weak_references;
  void* unused[16];
};
static_assert(sizeof(Master) == sizeof(VuThreadMasterObject),
              "the size that others are compiled with");

extern PyTypeObject master_type;

// Raises.
void prepare_master_type();

inline Loop& loop_of(PyObject* master) { return *reinterpret_cast<Master*>(master)->loop; }

}  // namespace vu_thread
