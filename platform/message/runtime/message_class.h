// The wrapper classes: vu_message.Message, the type of all of them, and how a class is
// bound to its message type.
#pragma once

#include "descriptors.h"

namespace vu {

// vu_message.MessageType: the type of wrapper classes. The class statement of a generated
// module runs through it; the name DESCRIPTOR in the class body says which message type
// the class wraps.
struct MessageClass {
  PyHeapTypeObject heap;
  MessageInfo* info;  // null for Message itself, which is abstract
};

extern PyTypeObject message_meta;
extern MessageClass message_base;  // vu_message.Message

inline PyTypeObject* message_type() { return &message_base.heap.ht_type; }

inline bool is_message_class(PyTypeObject* type) {
  return PyObject_TypeCheck(reinterpret_cast<PyObject*>(type), &message_meta);
}

inline bool is_message(py::Borrowed object) { return is_message_class(Py_TYPE(object.get())); }

inline MessageInfo* bound_info(PyTypeObject* type) {
  return reinterpret_cast<MessageClass*>(type)->info;
}

// The wrapper class of a message type; borrowed, kept for good. Where no module was
// generated for the type (the well-known types), one is made on first use.
PyTypeObject* class_of(MessageInfo& info);

// Makes the two types ready and adds them to `module`.
void add_message_types(py::Borrowed module);

}  // namespace vu
