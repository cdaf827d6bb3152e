// The names of reply methods.
#pragma once

#include <array>
#include <cstddef>

#include "module/constants.h"
#include "python/error.h"

namespace vu_mom {

// What the names of one command's reply methods begin with.
class ReplyPrefix {
 public:
  explicit ReplyPrefix(const char* text) : prefix_(text) {}

  // prefix + obj.package_name + "_" + obj.short_name, joined by `+` one after the other: a
  // name that is no string fails by the rules of `+`.
  py::Owned name_for(py::Borrowed obj) const;

 private:
  // A name joined earlier, from two strings that are kept with it: the same two objects
  // make the same name. Nearly every application is served from here, and the interpreter
  // looks methods up faster by a name that it has seen.
  struct Joined {
    PyObject* package_name = nullptr;  // owned, as the others
    PyObject* short_name = nullptr;
    PyObject* name = nullptr;
  };
  static constexpr std::size_t kMostJoined = 8;

  py::Owned find(py::Borrowed package_name, py::Borrowed short_name) const;
  void remember(py::Borrowed package_name, py::Borrowed short_name, py::Owned& name) const;

  Name prefix_;
  mutable std::array<Joined, kMostJoined> joined_;
  mutable std::size_t next_ = 0;  // the entry to replace
};

}  // namespace vu_mom
