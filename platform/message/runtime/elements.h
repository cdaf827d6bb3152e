// Changing the elements of a repeated field, scalars and messages alike.
#pragma once

#include <vector>

#include "message.h"
#include "scalar.h"

namespace vu {

// A checked element on its way into a repeated field: a scalar or a message.
struct Element {
  Scalar scalar;
  std::unique_ptr<NativeMessage> message;
};

Element to_element(Field& field, const Place& place, py::Borrowed value);

// All of an iterable, checked before anything is changed.
std::vector<Element> to_elements(Field& field, const Place& place, py::Borrowed values);

inline int element_count(const MessageObject& message, const Field& field) {
  return field.reflection->FieldSize(*message.native, field.descriptor);
}

// The native message at `index`, which must be in range.
inline NativeMessage& field_message(MessageObject& message, const Field& field, int index) {
  return *field.reflection->MutableRepeatedMessage(message.native, field.descriptor, index);
}

// The element at `index`, which must be in range.
py::Owned get_element(MessageObject& message, Field& field, int index);

void set_element(MessageObject& message, Field& field, int index, Element&& element);
void add_element(MessageObject& message, Field& field, Element&& element);

// Inserts before `index`, which is at most the count.
void insert_elements(MessageObject& message, Field& field, int index,
                     std::vector<Element>&& elements);

// Removes the elements for which `keep` is false; one entry per element. Those that
// Python holds live on as messages of their own.
void retain_elements(MessageObject& message, Field& field, const std::vector<bool>& keep);

void reverse_elements(MessageObject& message, Field& field, int first, int last);

}  // namespace vu
