// Values of scalar fields between Python and native messages.
#pragma once

#include <google/protobuf/map_field.h>
#include <google/protobuf/message.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "place.h"
#include "python/error.h"

namespace vu {

// TypeError: "PLACE: expected EXPECTED, got the type of `value`".
[[noreturn]] void raise_type(const Place& place, const char* expected, py::Borrowed value);

// A checked value on its way into a message: the member that its type uses.
struct Scalar {
  union {
    std::int64_t integer = 0;  // int32, int64, enum, bool
    std::uint64_t natural;     // uint32, uint64
    double real;               // float, double
  };
  std::string text;  // string, bytes
};

// Checks and converts a value for a field of that type; TypeError or ValueError naming the
// place. May run Python code (__index__, __float__). A name is accepted for an enum value.
Scalar to_scalar(const google::protobuf::FieldDescriptor& type, const Place& place,
                 py::Borrowed value);

// The characters of a str, as UTF-8, or of bytes, for a field of that type; valid as long as
// `value` is alive and not changed. TypeError or ValueError naming the place.
std::string_view to_text(const google::protobuf::FieldDescriptor& type, const Place& place,
                         py::Borrowed value);

// A str or bytes for a field of that type. ValueError where a str is not UTF-8.
py::Owned from_text(const google::protobuf::FieldDescriptor& type, const std::string& value);

// The value of a singular field, and of one element of a repeated field (`index` in range).
py::Owned get_scalar(const google::protobuf::Message& message,
                     const google::protobuf::FieldDescriptor& field);
py::Owned get_scalar(const google::protobuf::Message& message,
                     const google::protobuf::FieldDescriptor& field, int index);

// All elements of a repeated field, as a list.
py::Owned get_scalars(const google::protobuf::Message& message,
                      const google::protobuf::FieldDescriptor& field);

void set_scalar(google::protobuf::Message& message, const google::protobuf::FieldDescriptor& field,
                Scalar&& value);
void set_scalar(google::protobuf::Message& message, const google::protobuf::FieldDescriptor& field,
                int index, Scalar&& value);
void add_scalar(google::protobuf::Message& message, const google::protobuf::FieldDescriptor& field,
                Scalar&& value);

// The same for map entries; `type` is the entry's field "key" or "value".
google::protobuf::MapKey to_map_key(const google::protobuf::FieldDescriptor& type, Scalar&& value);
py::Owned from_map_key(const google::protobuf::FieldDescriptor& type,
                       const google::protobuf::MapKey& key);
void set_map_value(google::protobuf::MapValueRef& target,
                   const google::protobuf::FieldDescriptor& type, Scalar&& value);
py::Owned from_map_value(const google::protobuf::FieldDescriptor& type,
                         const google::protobuf::MapValueConstRef& value);

}  // namespace vu
