// The VuMom object: an application's client handle on the store.
#pragma once

#include <vector>

#include "module/constants.h"
#include "python/error.h"
#include "vu_mom_impl.h"

namespace vu_mom {

struct VuMom {
  PyObject_HEAD PyObject* vu_global;  // a VuGlobal, or None before __init__; owned, never null

  // The store's handle, read afresh at each call: the VuGlobal may be another one by now.
  // Requires that vu_global is a VuGlobal; a client that has none makes no calls.
  vu_mom_handle* handle() const;
};

extern PyTypeObject VuMomType;

// client.__getfunc, looked up now and called later; the client has to stay. Throws PythonError.
class Fetch {
 public:
  explicit Fetch(VuMom& client);

  py::Owned operator()(py::Borrowed name) const;  // __getfunc(name)

 private:
  VuMom& client_;
  PyCFunction function_ = nullptr;  // called with the client; null where looked_up_ is called
  py::Owned looked_up_;
};

// Makes the type ready with `methods`, an array that ends with an empty entry and lives
// as long as the type.
void ready_client_type(PyMethodDef* methods);

// __getfunc and debug_show_all.
std::vector<PyMethodDef> client_methods();

// Binds the client to `vu_global`, which has to be a VuGlobal or None and is not checked.
void bind_client(VuMom& client, py::Borrowed vu_global);

// Whether `object` may be bound: a VuGlobal (or of a subclass), or None.
bool is_global_or_none(py::Borrowed object);

// The name of VuGlobal in the texts of errors.
const char* global_type_name();

}  // namespace vu_mom
