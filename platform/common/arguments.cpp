#include "arguments.h"

#include <cstring>

namespace vu {
namespace {

constexpr std::size_t kUnknown = static_cast<std::size_t>(-1);

std::size_t position_of(py::Borrowed keyword, const char* const* names, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    if (PyUnicode_CompareWithASCIIString(keyword.get(), names[i]) == 0) return i;
  }
  return kUnknown;
}

}  // namespace

const char* short_name(const PyTypeObject* type) {
  const char* dot = std::strrchr(type->tp_name, '.');
  return dot == nullptr ? type->tp_name : dot + 1;
}

namespace {

void check_count(const Callee& callee, std::size_t given, std::size_t count) {
  if (given > count) {
    py::raise(PyExc_TypeError, "%.100s%s() takes at most %zu argument%s (%zu given)",
              short_name(callee.type), callee.method, count, count == 1 ? "" : "s", given);
  }
}

void bind_keyword(const Callee& callee, const char* const* names, std::size_t count,
                  py::Borrowed keyword, py::Borrowed value, py::Borrowed* bound) {
  const std::size_t i = position_of(keyword, names, count);
  if (i == kUnknown) {
    py::raise(PyExc_TypeError, "%.100s%s() got an unexpected keyword argument '%U'",
              short_name(callee.type), callee.method, keyword.get());
  }
  if (!bound[i].is_null()) {
    py::raise(PyExc_TypeError, "%.100s%s() got multiple values for argument '%s'",
              short_name(callee.type), callee.method, names[i]);
  }
  bound[i] = value;
}

void check_required(const Callee& callee, const char* const* names, std::size_t required,
                    const py::Borrowed* bound) {
  for (std::size_t i = 0; i < required; ++i) {
    if (bound[i].is_null()) {
      py::raise(PyExc_TypeError, "%.100s%s() missing required argument '%s'",
                short_name(callee.type), callee.method, names[i]);
    }
  }
}

}  // namespace

void bind(const Callee& callee, const char* const* names, std::size_t count, std::size_t required,
          py::Borrowed arguments, py::Borrowed keywords, py::Borrowed* bound) {
  const auto given = static_cast<std::size_t>(PyTuple_GET_SIZE(arguments.get()));
  check_count(callee, given, count);
  for (std::size_t i = 0; i < given; ++i) {
    bound[i] = py::Borrowed(PyTuple_GET_ITEM(arguments.get(), static_cast<Py_ssize_t>(i)));
  }
  if (!keywords.is_null()) {
    Py_ssize_t position = 0;
    PyObject* keyword = nullptr;
    PyObject* value = nullptr;
    while (PyDict_Next(keywords.get(), &position, &keyword, &value) != 0) {
      bind_keyword(callee, names, count, py::Borrowed(keyword), py::Borrowed(value), bound);
    }
  }
  check_required(callee, names, required, bound);
}

void bind_vector(const Callee& callee, const char* const* names, std::size_t count,
                 PyObject* const* arguments, std::size_t given, PyObject* keywords,
                 py::Borrowed* bound) {
  check_count(callee, given, count);
  for (std::size_t i = 0; i < given; ++i) bound[i] = py::Borrowed(arguments[i]);
  const Py_ssize_t named = keywords == nullptr ? 0 : PyTuple_GET_SIZE(keywords);
  for (Py_ssize_t i = 0; i < named; ++i) {
    bind_keyword(callee, names, count, py::Borrowed(PyTuple_GET_ITEM(keywords, i)),
                 py::Borrowed(arguments[given + static_cast<std::size_t>(i)]), bound);
  }
  check_required(callee, names, count, bound);
}

void raise_wrong_type(const Callee& callee, const char* argument, const char* expected,
                      py::Borrowed given) {
  py::raise(PyExc_TypeError, "%.100s%s() argument '%s' must be %s, not %.200s",
            short_name(callee.type), callee.method, argument, expected,
            Py_TYPE(given.get())->tp_name);
}

py::Owned whole_number(const Callee& callee, const char* argument, py::Borrowed value) {
  if (PyIndex_Check(value.get()) == 0) raise_wrong_type(callee, argument, "an integer", value);
  const py::Owned index = py::checked(PyNumber_Index(value.get()));
  return py::checked(PyNumber_Long(index.get()));  // a bool is its own index, but no exact int
}

std::int64_t integer_between(const Callee& callee, const char* argument, py::Borrowed value,
                             std::int64_t least, std::int64_t most) {
  const py::Owned exact = whole_number(callee, argument, value);
  int overflow = 0;
  const long long number = PyLong_AsLongLongAndOverflow(exact.get(), &overflow);
  if (overflow != 0 || number < least || number > most) {
    py::raise(PyExc_OverflowError, "%.100s%s() argument '%s' must be between %lld and %lld",
              short_name(callee.type), callee.method, argument, static_cast<long long>(least),
              static_cast<long long>(most));
  }
  return number;
}

double real_number(const Callee& callee, const char* argument, py::Borrowed value) {
  const PyNumberMethods* number = Py_TYPE(value.get())->tp_as_number;
  const bool real =
      number != nullptr && (number->nb_float != nullptr || PyIndex_Check(value.get()));
  if (!real) raise_wrong_type(callee, argument, "a number", value);
  const py::Owned converted = py::checked(PyNumber_Float(value.get()));
  return PyFloat_AS_DOUBLE(converted.get());
}

py::Owned message_class(const Callee& callee, py::Borrowed value) {
  if (PyCallable_Check(value.get()) == 0) {
    raise_wrong_type(callee, "cls", "a message class", value);
  }
  return py::Owned::share(value);
}

}  // namespace vu
