#include <absl/container/flat_hash_map.h>
#include <google/protobuf/reflection.h>

#include <utility>
#include <vector>

#include "message.h"
#include "message_class.h"
#include "native_map.h"
#include "vu_platform.h"

namespace vu {

namespace pb = google::protobuf;

namespace {

// The held wrappers of elements, by the address of the native message.
absl::flat_hash_map<const NativeMessage*, MessageObject*>& held_elements() {
  static auto& held = *new absl::flat_hash_map<const NativeMessage*, MessageObject*>();
  return held;
}

void enter_list(Node*& list, Node& node) {
  node.next = list;
  if (list != nullptr) list->link = &node.next;
  node.link = &list;
  list = &node;
}

void leave_list(Node& node) {
  *node.link = node.next;
  if (node.next != nullptr) node.next->link = node.link;
  node.next = nullptr;
  node.link = nullptr;
}

void enter_tree(Node& node, MessageObject& parent, Field& field, Node*& list) {
  static_cast<void>(py::Owned::share(py::Borrowed(&parent)).release());
  node.parent = &parent;
  node.field = &field;
  enter_list(list, node);
}

// To be called before anything is changed: it throws std::bad_alloc.
Held& held_by(MessageObject& message) {
  if (message.held == nullptr) message.held = new Held();
  return *message.held;
}

constexpr int kMostDepth = 100;

// A wrapper for `native`, which belongs to nobody Python knows of yet.
MessageObject* new_wrapper(MessageInfo& info, NativeMessage* native) {
  PyTypeObject* type = class_of(info);
  auto* message = static_cast<MessageObject*>(py::checked(type->tp_alloc(type, 0)).release());
  message->info = &info;
  message->native = native;
  return message;
}

void leave_elements(MessageObject& message) {
  if (!message.element) return;
  held_elements().erase(message.native);
  message.element = false;
}

// Makes an attached wrapper a root that owns its native message.
py::Owned become_root(MessageObject& message) {
  leave_elements(message);
  message.owned = true;
  return leave(message);
}

void unregister(MessageObject& message) {
  if (!message.registered) return;
  vu_platform_message_remove(reinterpret_cast<std::intptr_t>(message.native));
  message.registered = false;
}

// Before a value in a map is written to: makes the maps forget the lists of entries that
// somebody may have read them as.
void refresh_maps(const MessageObject& message) {
  for (const MessageObject* part = &message; part->parent != nullptr; part = part->parent) {
    if (part->element && part->field->map) {
      NativeMap::begin(*part->parent->native, *part->field->descriptor).MutableValueRef();
    }
  }
}

std::vector<py::Owned> snapshot(Node* list) {
  std::vector<py::Owned> nodes;
  for (Node* node = list; node != nullptr; node = node->next) {
    nodes.push_back(py::Owned::share(py::Borrowed(node)));
  }
  return nodes;
}

// Moves what is held of a repeated field or map, with its contents, into a message of
// its own, which only these views and elements keep alive.
void release_repeated(MessageObject& message, Field& field) {
  std::vector<Node*> held;
  if (Node* view = find_part(message, field)) held.push_back(view);
  for (Node* node = elements_of(message); node != nullptr; node = node->next) {
    if (node->field == &field) held.push_back(node);
  }
  if (held.empty()) return;
  const py::Owned holder = new_message(class_of(*message.info), new_native(*message.info));
  auto& home = *static_cast<MessageObject*>(holder.get());
  Held& home_held = held_by(home);
  const py::Owned kept = py::Owned::share(py::Borrowed(&message));
  message.info->reflection->SwapFields(message.native, home.native, {field.descriptor});
  for (Node* node : held) {
    const bool element = is_message(py::Borrowed(node));
    const py::Owned previous = leave(*node);
    enter_tree(*node, home, field, element ? home_held.elements : home_held.parts);
  }
}

// Before `from` is merged in: releases what the merge will replace.
void release_replaced(MessageObject& message, const NativeMessage& from) {
  const pb::Reflection& reflection = *message.info->reflection;
  for (const py::Owned& part : snapshot(parts_of(message))) {
    if (!is_message(part)) continue;
    auto& child = *static_cast<MessageObject*>(part.get());
    if (child.owned) continue;
    Field& field = *child.field;
    if (field.oneof) {
      const pb::FieldDescriptor* member =
          reflection.GetOneofFieldDescriptor(from, field.descriptor->containing_oneof());
      if (member != nullptr && member != field.descriptor) {
        release(message, field);
        continue;
      }
    }
    if (reflection.HasField(from, field.descriptor)) {
      release_replaced(child, reflection.GetMessage(from, field.descriptor));
    }
  }
  if (elements_of(message) == nullptr || !message.info->has_maps) return;
  for (Field* field : *message.info->fields) {
    if (!field->map || !field->message) continue;
    each_entry(const_cast<NativeMessage&>(from), *field->descriptor,
               [&](const pb::MapKey& key, pb::MapValueRef&) {
                 pb::MapValueConstRef value;
                 if (NativeMap::look_up(*message.native, *field->descriptor, key, value)) {
                   release_map_value(const_cast<NativeMessage&>(value.GetMessageValue()));
                 }
               });
  }
}

// After a merge: pending parts whose fields the merge has set become those fields.
void adopt_set(MessageObject& message) {
  const pb::Reflection& reflection = *message.info->reflection;
  for (const py::Owned& part : snapshot(parts_of(message))) {
    if (!is_message(part)) continue;
    auto& child = *static_cast<MessageObject*>(part.get());
    const pb::FieldDescriptor* field = child.field->descriptor;
    if (child.owned) {
      if (!reflection.HasField(*message.native, field)) continue;
      NativeMessage* merged = reflection.MutableMessage(message.native, field);
      child.info->reflection->Swap(child.native, merged);
      reflection.SetAllocatedMessage(message.native, child.native, field);
      child.owned = false;
    }
    adopt_set(child);
  }
}

}  // namespace

py::Owned new_message(PyTypeObject* type, std::unique_ptr<NativeMessage> native) {
  py::Owned object = py::checked(type->tp_alloc(type, 0));
  auto* message = static_cast<MessageObject*>(object.get());
  message->info = bound_info(type);
  message->native = native.release();
  message->owned = true;
  return object;
}

namespace {

bool deeper_than(const NativeMessage& message, int levels) {
  if (levels == 0) return true;
  const pb::Reflection& reflection = *message.GetReflection();
  std::vector<const pb::FieldDescriptor*> fields;
  reflection.ListFields(message, &fields);
  for (const pb::FieldDescriptor* field : fields) {
    if (field->cpp_type() != pb::FieldDescriptor::CPPTYPE_MESSAGE) continue;
    if (!field->is_repeated()) {
      if (deeper_than(reflection.GetMessage(message, field), levels - 1)) return true;
      continue;
    }
    for (int i = 0; i < reflection.FieldSize(message, field); ++i) {
      if (deeper_than(reflection.GetRepeatedMessage(message, field, i), levels - 1)) return true;
    }
  }
  return false;
}

}  // namespace

std::unique_ptr<NativeMessage> copy_native(const MessageInfo& info, const NativeMessage& from,
                                           const Place* place) {
  // Copies within copies would come to be deeper than the stack. What is deeper than this
  // could not be read from its own bytes either, a message with so many others within.
  if (info.endless && deeper_than(from, kMostDepth + 1)) {
    py::raise(PyExc_ValueError, "%s: more than %d messages within each other",
              place == nullptr ? info.name() : place->text().c_str(), kMostDepth);
  }
  std::unique_ptr<NativeMessage> copy = new_native(info);
  settle_maps(info, const_cast<NativeMessage&>(from));  // changes no value
  copy->MergeFrom(from);
  return copy;
}

void check_depth(const MessageObject& parent, const Field& field) {
  int depth = 0;
  for (const MessageObject* part = &parent; part != nullptr; part = part->parent) ++depth;
  if (depth > kMostDepth) {
    py::raise(PyExc_ValueError, "%s: more than %d messages within each other",
              field.descriptor->full_name().c_str(), kMostDepth);
  }
}

py::Owned part_of(MessageObject& parent, Field& field) {
  class_of(element_info(field));
  if (Node* held = find_part(parent, field)) return py::Owned::share(py::Borrowed(held));
  check_depth(parent, field);
  Held& held = held_by(parent);
  MessageInfo& info = element_info(field);
  const pb::Reflection& reflection = *parent.info->reflection;
  if (reflection.HasField(*parent.native, field.descriptor)) {
    MessageObject* part =
        new_wrapper(info, reflection.MutableMessage(parent.native, field.descriptor));
    part->in_map = parent.in_map;
    enter_tree(*part, parent, field, held.parts);
    return py::Owned::steal(part);
  }
  std::unique_ptr<NativeMessage> native = new_native(info);
  MessageObject* part = new_wrapper(info, native.get());
  static_cast<void>(native.release());
  part->owned = true;
  part->in_map = parent.in_map;
  enter_tree(*part, parent, field, held.parts);
  return py::Owned::steal(part);
}

py::Owned element_of(MessageObject& parent, Field& field, NativeMessage& native) {
  const auto found = held_elements().find(&native);
  if (found != held_elements().end()) return py::Owned::share(py::Borrowed(found->second));
  check_depth(parent, field);
  Held& held = held_by(parent);
  py::Owned object = py::Owned::steal(new_wrapper(element_info(field), &native));
  auto& element = *static_cast<MessageObject*>(object.get());
  held_elements().emplace(&native, &element);
  element.element = true;
  element.in_map = parent.in_map || field.map;
  enter_tree(element, parent, field, held.elements);
  return object;
}

Node* find_part(const MessageObject& parent, const Field& field) {
  Node* part = parts_of(parent);
  while (part != nullptr && part->field != &field) part = part->next;
  return part;
}

void attach_view(MessageObject& parent, Field& field, Node& view) {
  enter_tree(view, parent, field, held_by(parent).parts);
}

py::Owned leave(Node& node) {
  if (node.parent == nullptr) return py::Owned();
  leave_list(node);
  node.field = nullptr;
  return py::Owned::steal(std::exchange(node.parent, nullptr));
}

NativeMessage& writable(MessageObject& message) {
  if (message.parent != nullptr && message.owned) {
    MessageObject& parent = *message.parent;
    NativeMessage& native = writable(parent);
    clear_rivals(parent, *message.field);
    parent.info->reflection->SetAllocatedMessage(&native, message.native,
                                                 message.field->descriptor);
    message.owned = false;
  }
  if (message.in_map) refresh_maps(message);
  return *message.native;
}

void clear_rivals(MessageObject& message, Field& field) {
  if (!field.oneof) return;
  const pb::FieldDescriptor* member = message.info->reflection->GetOneofFieldDescriptor(
      *message.native, field.descriptor->containing_oneof());
  if (member != nullptr && member != field.descriptor) {
    clear_field(message, message.info->field(*member));
  }
}

void release(MessageObject& message, Field& field) {
  if (field.repeated) {
    release_repeated(message, field);
    return;
  }
  Node* part = find_part(message, field);
  if (part == nullptr) return;
  auto& child = *static_cast<MessageObject*>(part);
  if (!child.owned) {
    child.native = message.info->reflection->ReleaseMessage(message.native, field.descriptor);
  }
  const py::Owned parent = become_root(child);
}

void release_all(MessageObject& message) {
  const py::Owned kept = py::Owned::share(py::Borrowed(&message));
  while (Node* part = parts_of(message)) release(message, *part->field);
  while (Node* element = elements_of(message)) release(message, *element->field);
}

void release_element(std::unique_ptr<NativeMessage> native) {
  const auto found = held_elements().find(native.get());
  if (found == held_elements().end()) return;
  static_cast<void>(native.release());
  const py::Owned parent = become_root(*found->second);
}

bool release_map_value(NativeMessage& native) {
  const auto found = held_elements().find(&native);
  if (found == held_elements().end()) return false;
  MessageObject& element = *found->second;
  std::unique_ptr<NativeMessage> own = new_native(*element.info);
  element.info->reflection->Swap(own.get(), &native);
  unregister(element);
  const py::Owned parent = become_root(element);
  element.native = own.release();
  return true;
}

void clear_field(MessageObject& message, Field& field) {
  NativeMessage& native = writable(message);
  release(message, field);
  message.info->reflection->ClearField(&native, field.descriptor);
}

void clear(MessageObject& message) {
  writable(message);
  release_all(message);
  message.native->Clear();
}

void set_message(MessageObject& parent, Field& field, std::unique_ptr<NativeMessage> value) {
  NativeMessage& native = writable(parent);
  clear_rivals(parent, field);
  release(parent, field);
  parent.info->reflection->SetAllocatedMessage(&native, value.release(), field.descriptor);
}

void merge(MessageObject& message, const NativeMessage& from) {
  NativeMessage& native = writable(message);
  settle_maps(*message.info, const_cast<NativeMessage&>(from));  // changes no value
  release_replaced(message, from);
  native.MergeFrom(from);
  adopt_set(message);
}

void replace_contents(MessageObject& message, std::unique_ptr<NativeMessage> contents) {
  writable(message);
  release_all(message);
  settle_maps(*message.info, *contents);
  if (message.owned && !message.registered) {
    const std::unique_ptr<NativeMessage> previous(
        std::exchange(message.native, contents.release()));
    return;
  }
  message.info->reflection->Swap(message.native, contents.get());
}

py::Owned address_of(MessageObject& message) {
  const auto address = reinterpret_cast<std::intptr_t>(message.native);
  if (!message.registered) {
    if (vu_platform_message_add(address) != VU_MOM_OK) throw std::bad_alloc();
    message.registered = true;
  }
  return py::checked(PyLong_FromSsize_t(address));
}

void dealloc_message(PyObject* self) {
  auto& message = *static_cast<MessageObject*>(self);
  unregister(message);
  leave_elements(message);
  const py::Owned parent = leave(message);
  if (message.owned && message.info->delivered) {
    vu_platform_message_drop(reinterpret_cast<std::intptr_t>(message.native));
  } else if (message.owned) {
    delete message.native;
  }
  delete message.held;  // nobody is held by it: parts keep their parent alive
  Py_TYPE(self)->tp_free(self);
}

}  // namespace vu
