// Wrapper objects and who owns the native messages beneath them.
//
// Every native message is part of a tree. The root wrapper owns the root; wrappers of
// parts, and views of repeated fields and maps, keep their parent wrapper alive and so the
// whole tree. A parent knows the parts that Python holds at the moment, without keeping
// them alive. Whatever would destroy or replace a native part first releases the wrappers
// and views of it: they become roots of their own and take the contents with them. So no
// wrapper ever refers to freed memory, and a held part changes its address only where it is
// the value of a map that is released.
//
// A message field that is not set can be read too: its wrapper is pending, it owns an empty
// message of its own, which becomes the field's when it is first written to.
#pragma once

#include <google/protobuf/message.h>

#include <cstdint>
#include <memory>

#include "descriptors.h"
#include "place.h"

namespace vu {

using NativeMessage = google::protobuf::Message;

struct MessageObject;

// What has a place in a tree: a wrapper, or a view of a repeated field or map.
struct Node : PyObject {
  MessageObject* parent;  // owned; null: a root
  Field* field;           // of the parent; null: a root
  Node* next;             // among the held parts of the parent
  Node** link;            // what points to this node there
};

// The parts of a message that Python holds.
struct Held {
  Node* parts = nullptr;     // wrappers of message fields and views, at most one per field
  Node* elements = nullptr;  // wrappers of the elements of repeated fields and map values
};

// A wrapper, an instance of a class made by MessageType.
struct MessageObject : Node {
  MessageInfo* info;
  NativeMessage* native;
  Held* held;       // owned; null: nothing was held so far
  bool owned;       // native belongs to this wrapper: it is a root, or pending
  bool element;     // in parent->elements
  bool in_map;      // it, or what it is a part of, was made as the value of a map
  bool registered;  // the store knows the address
};

inline Place::Place(const MessageObject& message, const Field& field, const Place* around)
    : holder_(around == nullptr ? &message : nullptr), around_(around), field_(&field) {}

inline Node* parts_of(const MessageObject& message) {
  return message.held == nullptr ? nullptr : message.held->parts;
}
inline Node* elements_of(const MessageObject& message) {
  return message.held == nullptr ? nullptr : message.held->elements;
}

// ---- Making wrappers

// A root of class `type` around `native`.
py::Owned new_message(PyTypeObject* type, std::unique_ptr<NativeMessage> native);

inline std::unique_ptr<NativeMessage> new_native(const MessageInfo& info) {
  return std::unique_ptr<NativeMessage>(info.prototype->New());
}

// A copy of a message of the same type, for use at a place; `from` may be part of any tree.
// ValueError: it has more messages within each other than can be read from bytes.
std::unique_ptr<NativeMessage> copy_native(const MessageInfo& info, const NativeMessage& from,
                                           const Place* place = nullptr);

// ValueError where wrappers of what `field` holds would be of deeper parts than can be
// parsed. So what is built with wrappers can be read back, and chains of parents are short.
void check_depth(const MessageObject& parent, const Field& field);

// The wrapper of a message field, set or not: always the same one while Python holds it.
// ValueError: too deep within other messages.
py::Owned part_of(MessageObject& parent, Field& field);

// The same for `native`, which is an element of a repeated field or a value of a map.
py::Owned element_of(MessageObject& parent, Field& field, NativeMessage& native);

// The part held for `field`, or null.
Node* find_part(const MessageObject& parent, const Field& field);

// Enters a new view, whose type has been filled in, among the parts of `parent`.
void attach_view(MessageObject& parent, Field& field, Node& view);

// Takes a node that dies out of its tree; what keeps its parent alive.
py::Owned leave(Node& node);

// ---- Changing messages

// The native message, to be written to. Sets the fields that the message is a pending
// part of.
NativeMessage& writable(MessageObject& message);

// To be called before `field` is set: clears the other members of its oneof.
void clear_rivals(MessageObject& message, Field& field);

// Takes everything that is held of a field out of the tree, with its contents. Afterwards
// the native field may hold anything and be changed at will.
void release(MessageObject& message, Field& field);
void release_all(MessageObject& message);

// Takes the wrapper of an element, if one is held, out of the tree. `native` has just been
// taken out of its repeated field and is deleted where nobody holds it.
void release_element(std::unique_ptr<NativeMessage> native);

// The wrapper that is held of a map value gets the contents for its own; the value, still
// in the map, is empty afterwards. True if there was one.
bool release_map_value(NativeMessage& native);

void clear_field(MessageObject& message, Field& field);
void clear(MessageObject& message);

// Sets a message field to `value`.
void set_message(MessageObject& parent, Field& field, std::unique_ptr<NativeMessage> value);

// Merges `from`, which is no part of the same tree, into `message`; held parts stay parts.
void merge(MessageObject& message, const NativeMessage& from);

// Gives the message other contents; held parts are released.
void replace_contents(MessageObject& message, std::unique_ptr<NativeMessage> contents);

// ---- The address

// The address of the native message, made known to the store. MemoryError.
py::Owned address_of(MessageObject& message);

void dealloc_message(PyObject* self);

// Calls of a wrapper class, without the detour by an empty message: see py::set_type_call.
PyObject* call_class(PyObject* cls, PyObject* const* arguments, std::size_t count, PyObject* names);

// The slots of vu_message.Message.
void fill_message_type(PyTypeObject& type);

}  // namespace vu
