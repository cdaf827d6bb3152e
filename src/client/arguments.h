// Binding of a call's arguments to a command's parameters.
#pragma once

#include <array>
#include <cstddef>

#include "python/error.h"

namespace vu_mom {

inline constexpr std::size_t kMostParameters = 6;

// What may be passed: the parameters in order, the first `required` of them needed.
struct Signature {
  const char* function;  // as the texts of errors name it
  std::size_t required;
  std::array<const char*, kMostParameters> parameters;

  constexpr std::size_t count() const {
    std::size_t n = 0;
    while (n < kMostParameters && parameters[n] != nullptr) ++n;
    return n;
  }
};

// The arguments of one call, in the order of the parameters; null where an optional one
// was not given. Valid for the duration of the call. Both ways into the module end here:
// a vector with a tuple of keyword names, or a tuple with a dict.
class Arguments {
 public:
  Arguments(const Signature& signature, PyObject* const* vector, Py_ssize_t positional,
            PyObject* keyword_names);
  Arguments(const Signature& signature, PyObject* tuple, PyObject* dict);

  // The first N arguments: `const auto [db, obj] = in.values<2>();`
  template <std::size_t N>
  std::array<py::Borrowed, N> values() const {
    static_assert(N <= kMostParameters);
    std::array<py::Borrowed, N> first;
    for (std::size_t i = 0; i < N; ++i) first[i] = values_[i];
    return first;
  }

 private:
  void take_positional(const Signature& signature, PyObject* const* items, Py_ssize_t count);
  void take_keyword(const Signature& signature, PyObject* keyword, PyObject* value,
                    py::Borrowed& refused);
  void finish(const Signature& signature, py::Borrowed refused) const;

  std::array<py::Borrowed, kMostParameters> values_;
  // A dict is the caller's and may change during the call: what came from it is kept here.
  std::array<py::Owned, kMostParameters> kept_;
};

// Raises the TypeError of an argument of the wrong type.
[[noreturn]] void raise_wrong_type(const char* parameter, const char* expected, py::Borrowed got);

// An argument that has to be a list (no subclass) or None: refuses any other.
void check_list_or_none(const char* parameter, py::Borrowed argument);

}  // namespace vu_mom
