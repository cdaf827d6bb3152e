#include "identity.h"

namespace vu::store {

namespace {

using google::protobuf::FieldDescriptor;
using google::protobuf::Message;

void append_integer(std::string& out, std::uint64_t value, unsigned bytes) {
  for (unsigned i = 0; i < bytes; ++i) out.push_back(static_cast<char>(value >> (8 * i)));
}

std::uint64_t read_integer(std::string_view bytes) {
  std::uint64_t value = 0;
  for (std::size_t i = bytes.size(); i-- > 0;) {
    value = value << 8 | static_cast<unsigned char>(bytes[i]);
  }
  return value;
}

void append_signed(std::string& out, std::int64_t value) {
  out.push_back('i');
  append_integer(out, static_cast<std::uint64_t>(value), 8);
}

void append_unsigned(std::string& out, std::uint64_t value) {
  out.push_back('u');
  append_integer(out, value, 8);
}

// The bytes of the component that begins `identity`; 0 where none does.
std::size_t component_size(std::string_view identity) {
  if (identity.empty()) return 0;
  std::size_t size = 0;
  switch (identity[0]) {
    case 'i':
    case 'u':
      size = 9;
      break;
    case 'b':
      size = 2;
      break;
    case 's':
    case 'y':
      if (identity.size() < 5) return 0;
      size = 5 + static_cast<std::size_t>(read_integer(identity.substr(1, 4)));
      break;
    default:
      return 0;
  }
  return size <= identity.size() ? size : 0;
}

char letter_of(const FieldDescriptor& field) {
  switch (field.cpp_type()) {
    case FieldDescriptor::CPPTYPE_INT32:
    case FieldDescriptor::CPPTYPE_INT64:
    case FieldDescriptor::CPPTYPE_ENUM:
      return 'i';
    case FieldDescriptor::CPPTYPE_UINT32:
    case FieldDescriptor::CPPTYPE_UINT64:
      return 'u';
    case FieldDescriptor::CPPTYPE_BOOL:
      return 'b';
    default:
      return field.type() == FieldDescriptor::TYPE_BYTES ? 'y' : 's';
  }
}

// Sets one key field, unless to its default.
void fill_key(Message& message, const FieldDescriptor& field, std::string_view component) {
  const auto* reflection = message.GetReflection();
  const std::string_view content =
      component.substr(component[0] == 's' || component[0] == 'y' ? 5 : 1);
  switch (field.cpp_type()) {
    case FieldDescriptor::CPPTYPE_INT32: {
      const auto value = static_cast<std::int32_t>(read_integer(content));
      if (value != field.default_value_int32()) reflection->SetInt32(&message, &field, value);
      break;
    }
    case FieldDescriptor::CPPTYPE_INT64: {
      const auto value = static_cast<std::int64_t>(read_integer(content));
      if (value != field.default_value_int64()) reflection->SetInt64(&message, &field, value);
      break;
    }
    case FieldDescriptor::CPPTYPE_UINT32: {
      const auto value = static_cast<std::uint32_t>(read_integer(content));
      if (value != field.default_value_uint32()) reflection->SetUInt32(&message, &field, value);
      break;
    }
    case FieldDescriptor::CPPTYPE_UINT64: {
      const std::uint64_t value = read_integer(content);
      if (value != field.default_value_uint64()) reflection->SetUInt64(&message, &field, value);
      break;
    }
    case FieldDescriptor::CPPTYPE_ENUM: {
      const auto value = static_cast<std::int32_t>(read_integer(content));
      if (value != field.default_value_enum()->number()) {
        reflection->SetEnumValue(&message, &field, value);
      }
      break;
    }
    case FieldDescriptor::CPPTYPE_BOOL: {
      const bool value = content[0] != 0;
      if (value != field.default_value_bool()) reflection->SetBool(&message, &field, value);
      break;
    }
    default:
      if (content != field.default_value_string()) {
        reflection->SetString(&message, &field, std::string(content));
      }
  }
}

}  // namespace

std::string identity_of(const Message& message, const TypeInfo& type) {
  std::string identity;
  const auto* reflection = message.GetReflection();
  std::string scratch;
  for (const auto* field : type.keys) {
    switch (field->cpp_type()) {
      case FieldDescriptor::CPPTYPE_INT32:
        append_signed(identity, reflection->GetInt32(message, field));
        break;
      case FieldDescriptor::CPPTYPE_INT64:
        append_signed(identity, reflection->GetInt64(message, field));
        break;
      case FieldDescriptor::CPPTYPE_UINT32:
        append_unsigned(identity, reflection->GetUInt32(message, field));
        break;
      case FieldDescriptor::CPPTYPE_UINT64:
        append_unsigned(identity, reflection->GetUInt64(message, field));
        break;
      case FieldDescriptor::CPPTYPE_ENUM:
        append_signed(identity, reflection->GetEnumValue(message, field));
        break;
      case FieldDescriptor::CPPTYPE_BOOL:
        identity.push_back('b');
        identity.push_back(reflection->GetBool(message, field) ? 1 : 0);
        break;
      default: {
        const std::string& value = reflection->GetStringReference(message, field, &scratch);
        identity.push_back(letter_of(*field));
        append_integer(identity, value.size(), 4);
        identity.append(value);
      }
    }
  }
  return identity;
}

std::size_t prefix_size(std::string_view identity, std::uint32_t level) {
  std::size_t size = 0;
  for (std::uint32_t i = 0; i < level && size < identity.size(); ++i) {
    const std::size_t component = component_size(identity.substr(size));
    if (component == 0) return identity.size();
    size += component;
  }
  return size;
}

bool is_default_key(const Message& message, const FieldDescriptor& field) {
  const auto* reflection = message.GetReflection();
  switch (field.cpp_type()) {
    case FieldDescriptor::CPPTYPE_INT32:
      return reflection->GetInt32(message, &field) == field.default_value_int32();
    case FieldDescriptor::CPPTYPE_INT64:
      return reflection->GetInt64(message, &field) == field.default_value_int64();
    case FieldDescriptor::CPPTYPE_UINT32:
      return reflection->GetUInt32(message, &field) == field.default_value_uint32();
    case FieldDescriptor::CPPTYPE_UINT64:
      return reflection->GetUInt64(message, &field) == field.default_value_uint64();
    case FieldDescriptor::CPPTYPE_ENUM:
      return reflection->GetEnumValue(message, &field) == field.default_value_enum()->number();
    case FieldDescriptor::CPPTYPE_BOOL:
      return reflection->GetBool(message, &field) == field.default_value_bool();
    default: {
      std::string scratch;
      return reflection->GetStringReference(message, &field, &scratch) ==
             field.default_value_string();
    }
  }
}

bool fill_keys(Message& message, const TypeInfo& type, std::string_view identity) {
  for (const auto* field : type.keys) {
    const std::size_t size = component_size(identity);
    if (size == 0 || identity[0] != letter_of(*field)) return false;
    fill_key(message, *field, identity.substr(0, size));
    identity.remove_prefix(size);
  }
  return identity.empty();
}

}  // namespace vu::store
