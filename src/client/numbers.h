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

#include "python/error.h"
#include "vu_mom_impl.h"

namespace vu_mom {

std::int32_t to_int32(py::Borrowed value);
std::uint32_t to_uint32(py::Borrowed value);  // a negative value raises OverflowError
std::int64_t to_int64(py::Borrowed value);
long to_long(py::Borrowed value);
std::size_t to_size(py::Borrowed value);  // a negative value raises OverflowError

// An integer as a Python int of any size: a new int for what is none yet.
py::Owned to_int(py::Borrowed value);

// A float as it is, anything else by its conversion to one.
double to_double(py::Borrowed value);

// obj.get_ptr(), the address of the native message. Negative addresses are addresses.
vu_mom_message message_address(py::Borrowed obj);

// A native address as Python sees it: a signed integer.
py::Owned address_to_int(const void* address);

}  // namespace vu_mom
