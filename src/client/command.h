// A command of VuMom and its way in from the interpreter.
#pragma once

#include "client/arguments.h"
#include "client/client.h"
#include "module/traceback.h"

namespace vu_mom {

struct Command {
  const char* qualified_name;  // "vu_mom.VuMom.get": its entry in tracebacks
  Signature signature;
  // Does the command's steps in their order; throws PythonError at the first that fails.
  void (*body)(VuMom& client, const Arguments& in);
  const char* doc;  // opens with the text signature
};

// Runs a command on arguments that come as a vector or as tuple and dict.
template <typename In, typename... Parts>
PyObject* run(const Command& command, PyObject* self, Parts... parts) noexcept {
  return enter_traced(command.qualified_name, [&] {
    const In arguments(command.signature, parts...);
    command.body(*reinterpret_cast<VuMom*>(self), arguments);
    return py::Owned::share(py::Borrowed(Py_None));
  });
}

// The entry of a method table for a command; a function of its own for each, since the
// interpreter passes nothing that would tell them apart.
template <const Command& command>
PyMethodDef method() {
#if VU_VECTOR_METHODS
  const auto entry = [](PyObject* self, PyObject* const* vector, Py_ssize_t positional,
                        PyObject* keyword_names) {
    return run<Arguments>(command, self, vector, positional, keyword_names);
  };
  constexpr int kFlags = METH_FASTCALL | METH_KEYWORDS;
#else
  const auto entry = [](PyObject* self, PyObject* tuple, PyObject* dict) {
    if (dict == nullptr) return run<Arguments>(command, self, tuple);
    return run<ArgumentsOfDict>(command, self, tuple, dict);
  };
  constexpr int kFlags = METH_VARARGS | METH_KEYWORDS;
#endif
  return {command.signature.function, py::method_pointer(+entry), kFlags, command.doc};
}

}  // namespace vu_mom
