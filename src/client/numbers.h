// Conversion of Python numbers to native ones.
//
// An integer is an int, or an object whose type has __int__: floats are taken and
// truncated, strings are refused, and so are objects that have __index__ or __trunc__
// alone. The rule is the same on every version of the interpreter. What is out of range
// raises the interpreter's own OverflowError, of the C type that the target has.
// All of them throw PythonError.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>

#include "python/error.h"
#include "vu_mom_impl.h"

namespace vu_mom {

// Of any value; those without any_ are the same, without a call for a small int.
std::int32_t any_to_int32(py::Borrowed value);
long any_to_long(py::Borrowed value);
std::size_t any_to_size(py::Borrowed value);

inline bool is_small_int(py::Borrowed value, long& native) {
  return PyLong_Check(value.get()) && py::small_int(value.get(), native);
}

template <typename Native>
bool fits(long value) {
  return value >= std::numeric_limits<Native>::min() && value <= std::numeric_limits<Native>::max();
}

inline std::int32_t to_int32(py::Borrowed value) {
  long native = 0;
  const bool quick = is_small_int(value, native) && fits<std::int32_t>(native);
  return quick ? static_cast<std::int32_t>(native) : any_to_int32(value);
}

inline long to_long(py::Borrowed value) {
  long native = 0;
  return is_small_int(value, native) ? native : any_to_long(value);
}

// A negative value raises OverflowError.
inline std::size_t to_size(py::Borrowed value) {
  long native = 0;
  const bool quick = is_small_int(value, native) && native >= 0;
  return quick ? static_cast<std::size_t>(native) : any_to_size(value);
}

std::uint32_t to_uint32(py::Borrowed value);  // a negative value raises OverflowError
std::int64_t to_int64(py::Borrowed value);

// An integer as a Python int of any size: a new int for what is none yet.
py::Owned to_int(py::Borrowed value);

// A float as it is, anything else by its conversion to one.
double to_double(py::Borrowed value);

// obj.get_ptr(), the address of the native message. Negative addresses are addresses.
vu_mom_message message_address(py::Borrowed obj);

// A native address as Python sees it: a signed integer.
py::Owned address_to_int(const void* address);

}  // namespace vu_mom
