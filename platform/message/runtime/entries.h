// Changing the entries of a map field.
#pragma once

#include <utility>
#include <vector>

#include "elements.h"
#include "native_map.h"

namespace vu {

using Key = google::protobuf::MapKey;

inline const google::protobuf::FieldDescriptor& key_type(const Field& field) {
  return *field.descriptor->message_type()->map_key();
}

inline const google::protobuf::FieldDescriptor& value_type(const Field& field) {
  return *field.descriptor->message_type()->map_value();
}

// Checked and converted; TypeError or ValueError naming the place of the map. May run Python code.
Key to_key(const Field& field, const Place& place, py::Borrowed value);
Element to_value(Field& field, const Place& place, const Key& key, py::Borrowed value);

// All entries of a mapping (what dict() takes), checked before anything is changed.
std::vector<std::pair<Key, Element>> to_entries(Field& field, const Place& place,
                                                py::Borrowed values);

bool has_entry(const MessageObject& message, const Field& field, const Key& key);

// The value of an entry that exists.
py::Owned get_entry(MessageObject& message, Field& field, const Key& key);

// The value of an entry, made with the default where there is none.
py::Owned get_or_make_entry(MessageObject& message, Field& field, const Key& key);

void set_entry(MessageObject& message, const Field& field, const Key& key, Element&& value);

// False where there was no entry. A value that Python holds lives on.
bool remove_entry(MessageObject& message, Field& field, const Key& key);

// The keys in ascending order.
std::vector<Key> sorted_keys(const MessageObject& message, const Field& field);

inline int entry_count(const MessageObject& message, const Field& field) {
  return NativeMap::size(*message.native, *field.descriptor);
}

}  // namespace vu
