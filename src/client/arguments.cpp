#include "client/arguments.h"

namespace vu_mom {
namespace {

[[noreturn]] void raise_wrong_count(const Signature& signature, std::size_t given) {
  const std::size_t most = signature.count;
  const bool too_few = given < signature.required;
  const std::size_t expected = too_few ? signature.required : most;
  const char* rule = signature.required == most ? "exactly" : too_few ? "at least" : "at most";
  py::raise(PyExc_TypeError, "%.200s() takes %.8s %zd positional argument%.1s (%zd given)",
            signature.function, rule, static_cast<Py_ssize_t>(expected), expected == 1 ? "" : "s",
            static_cast<Py_ssize_t>(given));
}

std::size_t find_parameter(const Signature& signature, PyObject* keyword) {
  for (std::size_t i = 0; i < signature.count; ++i) {
    if (PyUnicode_CompareWithASCIIString(keyword, signature.parameters[i]) == 0) return i;
  }
  return signature.count;
}

[[noreturn]] void raise_refused_keyword(const Signature& signature, PyObject* keyword) {
  if (!PyUnicode_Check(keyword)) {
    py::raise(PyExc_TypeError, "%.200s() keywords must be strings", signature.function);
  }
  if (find_parameter(signature, keyword) < signature.count) {
    py::raise(PyExc_TypeError, "%.200s() got multiple values for keyword argument '%U'",
              signature.function, keyword);
  }
  py::raise(PyExc_TypeError, "%.200s() got an unexpected keyword argument '%U'", signature.function,
            keyword);
}

}  // namespace

void Arguments::bind(const Signature& signature, PyObject* const* vector, Py_ssize_t positional,
                     PyObject* keyword_names) {
  take_positional(signature, vector, positional);
  py::Borrowed refused;
  if (keyword_names != nullptr) {
    for (Py_ssize_t i = 0; i < PyTuple_GET_SIZE(keyword_names); ++i) {
      take_keyword(signature, PyTuple_GET_ITEM(keyword_names, i), vector[positional + i], refused);
    }
  }
  finish(signature, refused);
}

ArgumentsOfDict::ArgumentsOfDict(const Signature& signature, PyObject* tuple, PyObject* dict) {
  take_positional(signature, &PyTuple_GET_ITEM(tuple, 0), PyTuple_GET_SIZE(tuple));
  py::Borrowed refused;
  if (dict != nullptr) {
    Py_ssize_t position = 0;
    PyObject* keyword = nullptr;
    PyObject* value = nullptr;
    while (PyDict_Next(dict, &position, &keyword, &value)) {
      take_keyword(signature, keyword, value, refused);
    }
    for (std::size_t i = 0; i < kMostParameters; ++i) kept_[i] = py::Owned::share(values_[i]);
  }
  finish(signature, refused);
}

void Arguments::take_positional(const Signature& signature, PyObject* const* items,
                                Py_ssize_t count) {
  const std::size_t given = static_cast<std::size_t>(count);
  if (given > signature.count) raise_wrong_count(signature, given);
  for (std::size_t i = 0; i < given; ++i) values_[i] = py::Borrowed(items[i]);
}

// The first keyword that names no free parameter is remembered: a missing argument is
// reported before it.
void Arguments::take_keyword(const Signature& signature, PyObject* keyword, PyObject* value,
                             py::Borrowed& refused) {
  const std::size_t index =
      PyUnicode_Check(keyword) ? find_parameter(signature, keyword) : signature.count;
  if (index < signature.count && values_[index].is_null()) {
    values_[index] = py::Borrowed(value);
  } else if (refused.is_null()) {
    refused = py::Borrowed(keyword);
  }
}

void Arguments::finish(const Signature& signature, py::Borrowed refused) const {
  for (std::size_t i = 0; i < signature.required; ++i) {
    if (values_[i].is_null()) raise_wrong_count(signature, i);
  }
  if (!refused.is_null()) raise_refused_keyword(signature, refused.get());
}

void raise_wrong_type(const char* parameter, const char* expected, py::Borrowed got) {
  py::raise(PyExc_TypeError, "Argument '%.200s' has incorrect type (expected %.200s, got %.200s)",
            parameter, expected, Py_TYPE(got.get())->tp_name);
}

void check_list_or_none(const char* parameter, py::Borrowed argument) {
  if (PyList_CheckExact(argument.get()) || argument.is_none()) return;
  raise_wrong_type(parameter, "list", argument);
}

}  // namespace vu_mom
