#include "client/arrays.h"

#include "client/numbers.h"
#include "module/traceback.h"

namespace vu_mom {

py::Owned list_item(py::Borrowed list, std::size_t i) {
  if (i >= list_length(list)) py::raise(PyExc_IndexError, "list index out of range");
  return py::Owned::share(py::Borrowed(PyList_GET_ITEM(list.get(), static_cast<Py_ssize_t>(i))));
}

std::size_t list_length(py::Borrowed list) {
  return static_cast<std::size_t>(PyList_GET_SIZE(list.get()));
}

// A list compares equal to None only where it is None, so no comparison is made; what is
// left cannot fail.
std::size_t list_to_clen(py::Borrowed list_or_none) {
  return list_or_none.is_none() ? 0 : list_length(list_or_none);
}

std::size_t* size_t_list_to_carr(py::Borrowed list_or_none) {
  if (list_to_clen(list_or_none) == 0) return nullptr;
  std::size_t* array = nullptr;
  const bool converted = enter_unraisable("vu_mom.size_t_list_to_carr", [&] {
    const std::size_t n = list_length(list_or_none);
    array = allocate<std::size_t>(n);
    for (std::size_t i = 0; i < n; ++i) {
      const py::Owned element = list_item(list_or_none, i);
      array[i] = to_size(element);
    }
  });
  return converted ? array : nullptr;
}

std::size_t* to_sizes(py::Borrowed list) {
  const std::size_t n = list_length(list);
  std::size_t* const array = allocate<std::size_t>(n);
  for (std::size_t i = 0; i < n; ++i) {
    const py::Owned element = list_item(list, i);
    array[i] = to_size(element);
  }
  return array;
}

}  // namespace vu_mom
