// Arguments of constructors and class methods, with errors that name them.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>

#include "python/error.h"

namespace vu {

// The name of a type without its module.
const char* short_name(const PyTypeObject* type);

// What a call is named in errors: "IncrResult()", "IncrResult.of()".
struct Callee {
  const PyTypeObject* type;
  const char* method = "";  // ".of" or nothing
};

// Distributes positional and keyword arguments over `names`, of which the first
// `required` must be given. `bound` gets one entry per name, null where it was absent.
// Raises TypeError. `arguments` is a tuple; `keywords` a dict or null.
void bind(const Callee& callee, const char* const* names, std::size_t count, std::size_t required,
          py::Borrowed arguments, py::Borrowed keywords, py::Borrowed* bound);

// The same for a vector: `given` arguments, then one for each of `keywords`, a tuple or null.
// All of them are required.
void bind_vector(const Callee& callee, const char* const* names, std::size_t count,
                 PyObject* const* arguments, std::size_t given, PyObject* keywords,
                 py::Borrowed* bound);

template <std::size_t kCount>
std::array<py::Borrowed, kCount> bind(const Callee& callee,
                                      const std::array<const char*, kCount>& names,
                                      std::size_t required, PyObject* arguments,
                                      PyObject* keywords) {
  std::array<py::Borrowed, kCount> bound;
  bind(callee, names.data(), kCount, required, py::Borrowed(arguments), py::Borrowed(keywords),
       bound.data());
  return bound;
}

[[noreturn]] void raise_wrong_type(const Callee& callee, const char* argument, const char* expected,
                                   py::Borrowed given);

// An exact int from anything with __index__, which a float does not have. TypeError.
py::Owned whole_number(const Callee& callee, const char* argument, py::Borrowed value);

// An integer between `least` and `most`. TypeError, OverflowError.
std::int64_t integer_between(const Callee& callee, const char* argument, py::Borrowed value,
                             std::int64_t least, std::int64_t most);

template <typename Integer>
Integer integer(const Callee& callee, const char* argument, py::Borrowed value) {
  return static_cast<Integer>(integer_between(callee, argument, value,
                                              std::numeric_limits<Integer>::min(),
                                              std::numeric_limits<Integer>::max()));
}

// A float from a real number; a text is none. TypeError.
double real_number(const Callee& callee, const char* argument, py::Borrowed value);

// `value` itself, which must be callable. TypeError.
py::Owned message_class(const Callee& callee, py::Borrowed value);

}  // namespace vu
