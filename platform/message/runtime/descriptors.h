// Message types and their fields as Python sees them: what every access goes through.
#pragma once

#include <google/protobuf/message.h>

#include <cstdint>
#include <vector>

#include "place.h"
#include "plain_fields.h"
#include "python/error.h"

namespace vu {

struct MessageInfo;

// vu_message.Field: one field of a message type, and the attribute for it on the class.
// Made once per field and never freed.
struct Field : PyObject {
  const google::protobuf::FieldDescriptor* descriptor;
  const google::protobuf::Reflection* reflection;
  MessageInfo* owner;
  PyObject* name;     // owned, interned
  std::uint32_t key;  // position among the key fields from 1, or 0
  bool counter;
  bool repeated;  // maps too
  bool map;
  bool message;             // holds messages; of a map, its values
  bool oneof;               // member of a oneof with other members
  const plain::Slot* slot;  // where its value lies; null: reached by reflection
  MessageInfo* element;     // the message type it holds; null until element_info()
};

// vu_message.MessageDescriptor: one message type. Made once per type and never freed.
struct MessageInfo : PyObject {
  const google::protobuf::Descriptor* descriptor;
  const google::protobuf::Message* prototype;
  const google::protobuf::Reflection* reflection;
  PyObject* cls;                // owned: the wrapper class; null until class_of()
  PyObject* by_name;            // owned: dict from name to Field
  std::vector<Field*>* fields;  // by descriptor index; owned
  const plain::Fields* plain;   // where plain fields lie; owned
  bool has_maps;                // it or a message type within it, at any depth
  bool endless;                 // it or a type within it may be within itself, at any depth
  mutable bool delivered;       // the store has made messages of the type, and takes them back
  bool may_lack;                // required fields, or extensions that may have them: the same

  Field& field(const google::protobuf::FieldDescriptor& wanted) const {
    return *(*fields)[static_cast<std::size_t>(wanted.index())];
  }
  const char* name() const { return descriptor->full_name().c_str(); }
};

// The one MessageInfo of a type.
MessageInfo& info_of(const google::protobuf::Descriptor& descriptor);

// The type of the messages a field (or the values of a map field) consists of.
inline MessageInfo& element_info(Field& field) {
  if (field.element == nullptr) {
    const google::protobuf::FieldDescriptor* holder =
        field.map ? field.descriptor->message_type()->map_value() : field.descriptor;
    field.element = &info_of(*holder->message_type());
  }
  return *field.element;
}

// `object` as a message type. TypeError where it is none.
MessageInfo& descriptor_argument(py::Borrowed object);

// The field of that name (a str). ValueError where the type has none, TypeError where
// `name` is no str; both tell the place that a message is made for.
Field& find_field(const MessageInfo& info, py::Borrowed name, const Place* around = nullptr);

void add_descriptor_types(py::Borrowed module);

}  // namespace vu
