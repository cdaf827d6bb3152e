// Plays with messages as a program could: makes them, reads and writes their fields, and
// does something to their lists, maps and parts, in any order and also in the middle of a
// conversion. What is serialised is compared with what libprotobuf makes of the same.
#pragma once

#include <google/protobuf/message.h>

#include <cstddef>
#include <string>
#include <vector>

#include "input.h"
#include "python/reference.h"

namespace vu::fuzz {

class MessagePlay {
 public:
  // The classes must live as long as this object. The interpreter runs.
  MessagePlay(Input& input, const std::vector<PyObject*>& classes);
  ~MessagePlay();
  MessagePlay(const MessagePlay&) = delete;
  MessagePlay& operator=(const MessagePlay&) = delete;

  // Uses up the input, and lets go of everything.
  void all();

 private:
  static constexpr std::size_t kRegisters = 8;
  static constexpr int kDeepest = 4;

  static PyObject* act(PyObject*, PyObject*);

  void step();
  void parse();
  void call_method();
  void construct();
  void item(int which);
  void check_message(PyObject* message);
  void put(py::Owned value);
  PyObject* some_class();
  // Borrowed; null where the register is empty.
  PyObject* some_register();
  PyObject* some_message();
  PyObject* some_value();
  PyObject* some_name(PyObject* message);

  Input& in_;
  const std::vector<PyObject*>& classes_;
  py::Owned registers_[kRegisters];
  std::vector<std::intptr_t> addresses_;  // of messages, while they lived
  int depth_ = 0;
};

}  // namespace vu::fuzz
