// Binding of a call's arguments to a command's parameters.
#pragma once

#include <array>
#include <cstddef>
#include <initializer_list>

#include "python/error.h"

namespace vu_mom {

inline constexpr std::size_t kMostParameters = 6;

// What may be passed: the parameters in order, the first `required` of them needed.
struct Signature {
  constexpr Signature(const char* function_name, std::size_t needed,
                      std::initializer_list<const char*> names)
      : function(function_name), required(needed), count(names.size()) {
    std::size_t i = 0;
    for (const char* name : names) parameters[i++] = name;
  }

  const char* function;  // as the texts of errors name it
  std::size_t required;
  std::size_t count;
  std::array<const char*, kMostParameters> parameters{};
};

// The arguments of one call, in the order of the parameters; null where an optional one
// was not given. Valid for the duration of the call.
class Arguments {
 public:
  // From a vector with a tuple of keyword names, or null: what the caller keeps alive.
  Arguments(const Signature& signature, PyObject* const* vector, Py_ssize_t positional,
            PyObject* keyword_names) {
    const std::size_t given = static_cast<std::size_t>(positional);
    const bool simple =
        keyword_names == nullptr && given >= signature.required && given <= signature.count;
    if (simple) {
      for (std::size_t i = 0; i < given; ++i) values_[i] = py::Borrowed(vector[i]);
    } else {
      bind(signature, vector, positional, keyword_names);
    }
  }

  // From a tuple without keywords.
  Arguments(const Signature& signature, PyObject* tuple)
      : Arguments(signature, &PyTuple_GET_ITEM(tuple, 0), PyTuple_GET_SIZE(tuple), nullptr) {}

  // The first N arguments: `const auto [db, obj] = in.values<2>();`
  template <std::size_t N>
  std::array<py::Borrowed, N> values() const {
    static_assert(N <= kMostParameters);
    std::array<py::Borrowed, N> first;
    for (std::size_t i = 0; i < N; ++i) first[i] = values_[i];
    return first;
  }

 protected:
  Arguments() = default;

  void bind(const Signature& signature, PyObject* const* vector, Py_ssize_t positional,
            PyObject* keyword_names);
  void take_positional(const Signature& signature, PyObject* const* items, Py_ssize_t count);
  void take_keyword(const Signature& signature, PyObject* keyword, PyObject* value,
                    py::Borrowed& refused);
  void finish(const Signature& signature, py::Borrowed refused) const;

  std::array<py::Borrowed, kMostParameters> values_;
};

// From a tuple with a dict, or null. The dict is the caller's and may change during the
// call: what came from it is kept here.
class ArgumentsOfDict : public Arguments {
 public:
  ArgumentsOfDict(const Signature& signature, PyObject* tuple, PyObject* dict);

 private:
  std::array<py::Owned, kMostParameters> kept_;
};

// Raises the TypeError of an argument of the wrong type.
[[noreturn]] void raise_wrong_type(const char* parameter, const char* expected, py::Borrowed got);

// An argument that has to be a list (no subclass) or None: refuses any other.
void check_list_or_none(const char* parameter, py::Borrowed argument);

}  // namespace vu_mom
