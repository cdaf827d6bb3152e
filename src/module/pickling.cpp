#include "module/pickling.h"

#include "client/arguments.h"
#include "client/client.h"
#include "client/numbers.h"
#include "module/constants.h"
#include "module/traceback.h"
#include "module/vu_mom.h"

namespace vu_mom {
namespace {

constexpr long kLayoutChecksum = 0x2b63339;  // of the field list (vu_global)

const Name unpickle_name("__pyx_unpickle_VuMom");
const Name dict_name("__dict__");
const Name update_name("update");
const Name new_name("__new__");
const Name reduce_name("__reduce__");
const Name reduce_ex_name("__reduce_ex__");
const Name setstate_name("__setstate__");
const Name getstate_name("__getstate__");
const Name pickle_error_name("PickleError");

PyObject* client_type() { return reinterpret_cast<PyObject*>(&VuMomType); }

// object.name, or null where it has no such attribute. Other errors are thrown.
py::Owned optional_attribute(py::Borrowed object, const Name& name) {
  py::Owned value = py::Owned::steal(PyObject_GetAttr(object.get(), name.get().get()));
  if (value.is_null()) py::expect_error(PyExc_AttributeError);
  return value;
}

// Looked up when it is needed: the module's attribute is what pickle will look up.
py::Owned unpickle_function() {
  PyObject* const function =
      PyDict_GetItemWithError(module_dict().get(), unpickle_name.get().get());
  if (function == nullptr) {
    if (PyErr_Occurred()) throw py::PythonError();
    py::raise(PyExc_NameError, "name '%U' is not defined", unpickle_name.get().get());
  }
  return py::Owned::share(py::Borrowed(function));
}

// (unpickle, (type, checksum, None), state), or (unpickle, (type, checksum, state)) where
// there is nothing that __setstate__ would be needed for.
py::Owned reduce(py::Borrowed self) {
  const py::Borrowed vu_global(reinterpret_cast<VuMom*>(self.get())->vu_global);
  py::Owned state = py::checked(PyTuple_Pack(1, vu_global.get()));
  bool use_setstate = !vu_global.is_none();
  const py::Owned dict = optional_attribute(self, dict_name);
  if (!dict.is_null() && !dict.is_none()) {
    const py::Owned tail = py::checked(PyTuple_Pack(1, dict.get()));
    state = py::checked(PySequence_Concat(state.get(), tail.get()));
    use_setstate = true;
  }
  const py::Owned function = unpickle_function();
  const py::Owned checksum = py::checked(PyLong_FromLong(kLayoutChecksum));
  const py::Owned arguments =
      py::checked(PyTuple_Pack(3, reinterpret_cast<PyObject*>(Py_TYPE(self.get())), checksum.get(),
                               use_setstate ? Py_None : state.get()));
  if (!use_setstate) return py::checked(PyTuple_Pack(2, function.get(), arguments.get()));
  return py::checked(PyTuple_Pack(3, function.get(), arguments.get(), state.get()));
}

// A state is a tuple; None gets as far as being subscripted.
void check_state(py::Borrowed state) {
  if (PyTuple_CheckExact(state.get()) || state.is_none()) return;
  py::raise(PyExc_TypeError, "Expected %.16s, got %.200s", "tuple", Py_TYPE(state.get())->tp_name);
}

void set_state(py::Borrowed self, py::Borrowed state) {
  if (state.is_none()) {
    py::raise(PyExc_TypeError, "'NoneType' object is not subscriptable");
  }
  const py::Owned vu_global = py::checked(PySequence_GetItem(state.get(), 0));
  if (!is_global_or_none(vu_global)) {
    py::raise(PyExc_TypeError, "Cannot convert %.200s to %.200s", Py_TYPE(vu_global.get())->tp_name,
              global_type_name());
  }
  bind_client(*reinterpret_cast<VuMom*>(self.get()), vu_global);

  if (PyTuple_GET_SIZE(state.get()) < 2) return;
  const py::Owned dict = optional_attribute(self, dict_name);
  if (dict.is_null()) return;
  py::checked(PyObject_CallMethodObjArgs(dict.get(), update_name.get().get(),
                                         PyTuple_GET_ITEM(state.get(), 1), nullptr));
}

// Both ways to a state share an entry of their own in the traceback.
void apply_state(py::Borrowed self, py::Borrowed state) {
  if (enter_traced_status("vu_mom.__pyx_unpickle_VuMom__set_state",
                          [&] { set_state(self, state); }) < 0) {
    throw py::PythonError();
  }
}

PyObject* client_reduce(PyObject* self, PyObject*) {
  return enter_traced("vu_mom.VuMom.__reduce__", [&] { return reduce(py::Borrowed(self)); });
}

PyObject* client_setstate(PyObject* self, PyObject* state) {
  return enter_traced("vu_mom.VuMom.__setstate__", [&] {
    check_state(py::Borrowed(state));
    apply_state(py::Borrowed(self), py::Borrowed(state));
    return py::Owned::share(py::Borrowed(Py_None));
  });
}

[[noreturn]] void raise_wrong_checksum(long checksum) {
  const py::Owned pickle = py::checked(PyImport_ImportModule("pickle"));
  const py::Owned type = optional_attribute(pickle, pickle_error_name);
  if (type.is_null()) {
    py::raise(PyExc_ImportError, "cannot import name %S", pickle_error_name.get().get());
  }
  py::raise(type.get(), "Incompatible checksums (%ld vs 0x2b63339 = (vu_global))", checksum);
}

constexpr Signature kUnpickle{
    "__pyx_unpickle_VuMom", 3, {"__pyx_type", "__pyx_checksum", "__pyx_state"}};

PyObject* unpickle(PyObject*, PyObject* tuple, PyObject* dict) {
  return enter_traced("vu_mom.__pyx_unpickle_VuMom", [&] {
    const ArgumentsOfDict in(kUnpickle, tuple, dict);
    const auto [type, checksum_arg, state] = in.values<3>();
    const long checksum = to_long(checksum_arg);
    if (checksum != kLayoutChecksum) raise_wrong_checksum(checksum);

    const py::Owned create = py::checked(PyObject_GetAttr(client_type(), new_name.get().get()));
    py::Owned client = py::checked(PyObject_CallFunctionObjArgs(create.get(), type.get(), nullptr));
    if (!state.is_none()) {
      check_state(state);
      apply_state(client, state);
    }
    return client;
  });
}

PyMethodDef reduce_method = {"__reduce__", client_reduce, METH_NOARGS,
                             "__reduce__($self, /)\n--\n\n"
                             "The client for pickle: its class and its VuGlobal."};

PyMethodDef setstate_method = {"__setstate__", client_setstate, METH_O,
                               "__setstate__($self, state, /)\n--\n\n"
                               "Bind the client to the VuGlobal of a pickled state, and\n"
                               "update its __dict__. Does not register it again."};

PyMethodDef unpickle_method = {"__pyx_unpickle_VuMom", py::method_pointer(unpickle),
                               METH_VARARGS | METH_KEYWORDS,
                               "__pyx_unpickle_VuMom(__pyx_type, __pyx_checksum, __pyx_state)\n"
                               "--\n\n"
                               "A client from its pickled state, without running __init__."};

// Whether the class has what every object has, and nothing of its own.
bool has_default(const Name& name) {
  const py::Owned own = optional_attribute(py::Borrowed(client_type()), name);
  const py::Owned inherited =
      optional_attribute(py::Borrowed(reinterpret_cast<PyObject*>(&PyBaseObject_Type)), name);
  return own.get() == inherited.get();
}

void add_method(const Name& name, PyMethodDef& definition) {
  const py::Owned method = py::checked(PyDescr_NewMethod(&VuMomType, &definition));
  py::checked(PyDict_SetItem(py::type_dict(VuMomType), name.get().get(), method.get()));
}

}  // namespace

void install_pickling() {
  try {
    if (has_default(getstate_name) && has_default(reduce_ex_name) && has_default(reduce_name)) {
      // __reduce__ last: where it is there, an earlier import has added both.
      add_method(setstate_name, setstate_method);
      add_method(reduce_name, reduce_method);
      PyType_Modified(&VuMomType);
    }
  } catch (const py::PythonError&) {
    if (!PyErr_Occurred()) {
      py::raise(PyExc_RuntimeError, "Unable to initialize pickling for %s", VuMomType.tp_name);
    }
    throw;
  }
}

py::Owned make_unpickle_function(py::Borrowed module_name) {
  return py::checked(PyCFunction_NewEx(&unpickle_method, nullptr, module_name.get()));
}

}  // namespace vu_mom
