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
  bool made_here;     // no module has it under its name
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

inline bool is_made_here(PyTypeObject* type) {
  return reinterpret_cast<MessageClass*>(type)->made_here;
}

// The message type of a class. TypeError: it is abstract.
MessageInfo& concrete_info(PyTypeObject* type);

// The wrapper class of a message type; borrowed, kept for good. On first use it may have to be
// imported (the well-known types) or made (where no module was generated), which may run Python
// code: whoever is about to point to native messages calls it before.
PyTypeObject* make_class(MessageInfo& info);
inline PyTypeObject* class_of(MessageInfo& info) {
  if (info.cls == nullptr) return make_class(info);
  return reinterpret_cast<PyTypeObject*>(info.cls);
}

// Makes the two types ready and adds them to `module`.
void add_message_types(py::Borrowed module);

}  // namespace vu
