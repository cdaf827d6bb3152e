// The context of a request: a dict with what its callback needs to deliver replies.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "module/constants.h"
#include "python/error.h"

namespace vu_mom {

enum class Key : std::size_t {
  p,       // the command's privdata, handed back with each reply
  cb,      // what is called with the replies
  obj,     // the message class of the request
  resobj,  // the result class that replies are built as
  flag,    // the end mark of the last reply
};
inline constexpr std::size_t kKeys = 5;

// The key as it stands in the dict.
const Name& name_of(Key key);

// A context as a callback reads it: every entry is that of the moment in which it is asked for.
// All keys are looked for at once, and what was found counts for as long as the dict says that
// it has not changed.
class Context {
 public:
  Context() = default;
  explicit Context(py::Borrowed context);

  // Null where there is no such entry.
  py::Owned find(Key key) const {
    PyObject* value = nullptr;
    return knows(key, value) ? py::Owned::share(py::Borrowed(value)) : look_for(key);
  }

  // Raises KeyError.
  py::Owned item(Key key) const {
    PyObject* value = nullptr;
    const bool found = knows(key, value) && value != nullptr;
    return found ? py::Owned::share(py::Borrowed(value)) : look_up(key);
  }

  // Gives back the store's reference; the dict may be gone with this object after it.
  void release();

 private:
  bool knows(Key key, PyObject*& value) const {
    if (version_ == 0 || version_ != py::dict_version(context_.get())) return false;
    value = found_[static_cast<std::size_t>(key)];
    return true;
  }

  py::Owned look_for(Key key) const;
  py::Owned look_up(Key key) const;

  py::Owned context_;  // a dict; what else supports the same lookups is taken too
  std::array<PyObject*, kKeys> found_{};  // borrowed from the dict
  std::uint64_t version_ = 0;             // of the dict when they were; 0: never
};

}  // namespace vu_mom
