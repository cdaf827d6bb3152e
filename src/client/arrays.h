// Native arrays for commands that take lists. They come from malloc, and whoever gets one
// frees it, at the point of its steps that says so and at no other: where a conversion
// fails before the store was called, the array stays allocated, on purpose.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "python/error.h"
#include "vu_mom_impl.h"

namespace vu_mom {

// `n` native values from malloc, to be freed with free; null where memory is short.
template <typename T>
T* try_allocate(std::size_t n) {
  return static_cast<T*>(std::malloc(n * sizeof(T)));
}

// The same; raises MemoryError.
template <typename T>
T* allocate(std::size_t n) {
  T* const array = try_allocate<T>(n);
  if (array == nullptr) {
    PyErr_NoMemory();
    throw py::PythonError();
  }
  return array;
}

// list[i]. Raises IndexError: conversions run Python code, which may shorten the list.
py::Owned list_item(py::Borrowed list, std::size_t i);

// The number of elements of a list. Requires a list.
std::size_t list_length(py::Borrowed list);

// The number of elements of a list, 0 for None. Cannot fail.
std::size_t list_to_clen(py::Borrowed list_or_none);

// The elements as a new array; null for None and for an empty list. Raises nothing: an
// element that cannot be converted is reported as unraisable, and the result is null too.
std::size_t* size_t_list_to_carr(py::Borrowed list_or_none);

// The elements as a new array. Requires a list with elements. Raises what they raise.
std::size_t* to_sizes(py::Borrowed list);

}  // namespace vu_mom
