#include "client/numbers.h"

#include "module/constants.h"

namespace vu_mom {
namespace {

const Name get_ptr("get_ptr");

static_assert(sizeof(long) == sizeof(std::size_t), "long is as wide as an address");
static_assert(sizeof(long long) == sizeof(std::int64_t));

// The interpreter's error for an int that no C type holds: the text is its own, and on
// 64-bit hosts a value that only the 32-bit type cannot hold gets the same one.
[[noreturn]] void raise_too_large(bool is_signed) {
  const py::Owned huge = py::checked(PyLong_FromString("1000000000000000000000000", nullptr, 16));
  if (is_signed) {
    PyLong_AsLong(huge.get());
  } else {
    PyLong_AsUnsignedLong(huge.get());
  }
  throw py::PythonError();
}

// convert(int object), on the value itself or on what it converts to.
template <typename Convert>
auto with_int(py::Borrowed value, Convert convert) {
  if (PyLong_Check(value.get())) return convert(value.get());
  return convert(to_int(value).get());
}

// The value as a long, with the sign of its overflow: 0 where it fits.
long to_long_and_overflow(PyObject* integer, int& overflow) {
  long value = 0;
  overflow = 0;
  if (py::small_int(integer, value)) return value;
  return PyLong_AsLongAndOverflow(integer, &overflow);
}

unsigned long to_unsigned_long(PyObject* integer, const char* type_name) {
  int overflow = 0;
  const long value = to_long_and_overflow(integer, overflow);
  if (value < 0 && overflow <= 0) {  // -1 with a positive overflow is a large value
    py::raise(PyExc_OverflowError, "can't convert negative value to %s", type_name);
  }
  if (overflow == 0) return static_cast<unsigned long>(value);
  const unsigned long large = PyLong_AsUnsignedLong(integer);
  if (large == static_cast<unsigned long>(-1) && PyErr_Occurred()) throw py::PythonError();
  return large;
}

}  // namespace

std::int32_t any_to_int32(py::Borrowed value) {
  return with_int(value, [](PyObject* integer) {
    int overflow = 0;
    const long native = to_long_and_overflow(integer, overflow);
    if (overflow != 0 || !fits<std::int32_t>(native)) raise_too_large(true);
    return static_cast<std::int32_t>(native);
  });
}

std::uint32_t to_uint32(py::Borrowed value) {
  return with_int(value, [](PyObject* integer) {
    const unsigned long native = to_unsigned_long(integer, "unsigned int");
    if (native > std::numeric_limits<std::uint32_t>::max()) raise_too_large(false);
    return static_cast<std::uint32_t>(native);
  });
}

std::size_t any_to_size(py::Borrowed value) {
  return with_int(
      value, [](PyObject* integer) -> std::size_t { return to_unsigned_long(integer, "size_t"); });
}

long any_to_long(py::Borrowed value) {
  return with_int(value, [](PyObject* integer) {
    long native = 0;
    if (py::small_int(integer, native)) return native;
    native = PyLong_AsLong(integer);
    if (native == -1 && PyErr_Occurred()) throw py::PythonError();
    return native;
  });
}

std::int64_t to_int64(py::Borrowed value) {
  return with_int(value, [](PyObject* integer) -> std::int64_t {
    const long long native = PyLong_AsLongLong(integer);
    if (native == -1 && PyErr_Occurred()) throw py::PythonError();
    return native;
  });
}

py::Owned to_int(py::Borrowed value) {
  if (PyLong_Check(value.get())) return py::Owned::share(value);
  const PyNumberMethods* const number = Py_TYPE(value.get())->tp_as_number;
  if (number == nullptr || number->nb_int == nullptr) {
    py::raise(PyExc_TypeError, "an integer is required");
  }
  py::Owned integer = py::checked(number->nb_int(value.get()));
  if (!PyLong_Check(integer.get())) {
    py::raise(PyExc_TypeError, "__%.4s__ returned non-%.4s (type %.200s)", "int", "int",
              Py_TYPE(integer.get())->tp_name);
  }
  return integer;
}

double to_double(py::Borrowed value) {
  if (PyFloat_CheckExact(value.get())) return PyFloat_AS_DOUBLE(value.get());
  const double native = PyFloat_AsDouble(value.get());
  if (native == -1.0 && PyErr_Occurred()) throw py::PythonError();
  return native;
}

vu_mom_message message_address(py::Borrowed obj) {
  const py::Owned address = py::checked(py::call_method(obj.get(), get_ptr.get().get()));
  return to_long(address);
}

py::Owned address_to_int(const void* address) {
  return py::checked(PyLong_FromSsize_t(reinterpret_cast<Py_ssize_t>(address)));
}

}  // namespace vu_mom
