// Map fields of native messages, by key.
//
// libprotobuf keeps a map field as a list of entries, as a hash map, or both, and whoever
// parses leaves a list. Messages of wrappers hold hash maps only (settle_maps), so that
// the addresses of values are stable and equal messages serialise equally.
#pragma once

#include <google/protobuf/map_field.h>
#include <google/protobuf/message.h>

#include "descriptors.h"

// The name under which libprotobuf opens its map reflection to a Python binding.
namespace google::protobuf::python {

class MapReflectionFriend {
 public:
  static MapIterator begin(Message& message, const FieldDescriptor& field) {
    return message.GetReflection()->MapBegin(&message, &field);
  }
  static MapIterator end(Message& message, const FieldDescriptor& field) {
    return message.GetReflection()->MapEnd(&message, &field);
  }
  static int size(const Message& message, const FieldDescriptor& field) {
    return message.GetReflection()->MapSize(message, &field);
  }
  static bool contains(const Message& message, const FieldDescriptor& field, const MapKey& key) {
    return message.GetReflection()->ContainsMapKey(message, &field, key);
  }
  static bool look_up(const Message& message, const FieldDescriptor& field, const MapKey& key,
                      MapValueConstRef& value) {
    return message.GetReflection()->LookupMapValue(message, &field, key, &value);
  }
  // True where the key is new; then the value is the type's default.
  static bool insert(Message& message, const FieldDescriptor& field, const MapKey& key,
                     MapValueRef& value) {
    return message.GetReflection()->InsertOrLookupMapValue(&message, &field, key, &value);
  }
  static bool erase(Message& message, const FieldDescriptor& field, const MapKey& key) {
    return message.GetReflection()->DeleteMapValue(&message, &field, key);
  }
};

}  // namespace google::protobuf::python

namespace vu {

using NativeMap = google::protobuf::python::MapReflectionFriend;

// Calls visit(key, value) for every entry, in no particular order; `visit` must not change
// the map.
template <typename Visit>
void each_entry(google::protobuf::Message& message, const google::protobuf::FieldDescriptor& field,
                Visit&& visit) {
  const google::protobuf::MapIterator end = NativeMap::end(message, field);
  for (google::protobuf::MapIterator entry = NativeMap::begin(message, field); entry != end;
       ++entry) {
    visit(entry.GetKey(), *entry.MutableValueRef());
  }
}

// Turns all maps in a message into hash maps.
void settle_maps(const MessageInfo& info, google::protobuf::Message& message);

}  // namespace vu
