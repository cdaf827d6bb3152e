#include "identity.h"

#include "recycled.h"

namespace vu::store {

namespace {

constexpr std::size_t kUsualSize = 60;  // of an identity; larger ones grow

using google::protobuf::FieldDescriptor;
using google::protobuf::Message;

// A letter and the `size` low bytes of an integer, at most 8.
void append_integer(std::string& out, char letter, std::uint64_t value, unsigned size) {
  char bytes[1 + sizeof(value)] = {letter};
  for (unsigned i = 0; i < size; ++i) bytes[1 + i] = static_cast<char>(value >> (8 * i));
  out.append(bytes, 1 + size);
}

std::uint64_t read_integer(std::string_view bytes) {
  std::uint64_t value = 0;
  for (std::size_t i = bytes.size(); i-- > 0;) {
    value = value << 8 | static_cast<unsigned char>(bytes[i]);
  }
  return value;
}

// The same of four bytes, which the compiler makes one load of.
std::uint32_t read_size(const char* bytes) {
  const auto at = [bytes](unsigned i) {
    return static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[i])) << (8 * i);
  };
  return at(0) | at(1) | at(2) | at(3);
}

void append_signed(std::string& out, std::int64_t value) {
  append_integer(out, 'i', static_cast<std::uint64_t>(value), 8);
}

void append_unsigned(std::string& out, std::uint64_t value) { append_integer(out, 'u', value, 8); }

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
      size = 5 + std::size_t{read_size(identity.data() + 1)};
      break;
    default:
      return 0;
  }
  return size <= identity.size() ? size : 0;
}

}  // namespace

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

namespace {

void append_bool(std::string& out, bool value) {
  out.push_back('b');
  out.push_back(value ? 1 : 0);
}

void append_text(std::string& out, char letter, const std::string& value) {
  append_integer(out, letter, value.size(), 4);
  out.append(value);
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

namespace {

// The component of a plain key field, which begins with `letter`.
void append_slot(std::string& identity, const Message& message, const plain::Slot& slot,
                 char letter) {
  const bool is_short = slot.size == sizeof(std::int32_t);
  switch (letter) {
    case 'i':
      return append_signed(identity, is_short ? plain::read<std::int32_t>(message, slot)
                                              : plain::read<std::int64_t>(message, slot));
    case 'u':
      return append_unsigned(identity, is_short ? plain::read<std::uint32_t>(message, slot)
                                                : plain::read<std::uint64_t>(message, slot));
    case 'b':
      return append_bool(identity, plain::read<bool>(message, slot));
    default:
      append_text(identity, letter, plain::read_text(message, slot));
  }
}

// The same for a plain key field.
void fill_slot(Message& message, const plain::Slot& slot, std::string_view component) {
  if (slot.is_text()) {
    const std::string_view text = component.substr(5);
    if (!text.empty()) plain::write_text(message, slot, text.data(), text.size());
    return;
  }
  const std::uint64_t value = read_integer(component.substr(1));
  switch (slot.size) {
    case sizeof(std::uint8_t): {
      const auto truth = static_cast<std::uint8_t>(value != 0 ? 1 : 0);
      if (truth != slot.default_bits) plain::write(message, slot, truth);
      return;
    }
    case sizeof(std::uint32_t): {
      const auto low = static_cast<std::uint32_t>(value);
      if (low != slot.default_bits) plain::write(message, slot, low);
      return;
    }
    default:
      if (value != slot.default_bits) plain::write(message, slot, value);
  }
}

}  // namespace

std::string identity_of(const Message& message, const TypeInfo& type) {
  std::string identity = take_text(kUsualSize);
  if (!type.key_slots.empty()) {
    for (std::size_t i = 0; i < type.key_slots.size(); ++i) {
      append_slot(identity, message, *type.key_slots[i], type.key_letters[i]);
    }
    return identity;
  }
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
        append_bool(identity, reflection->GetBool(message, field));
        break;
      default:
        append_text(identity, letter_of(*field),
                    reflection->GetStringReference(message, field, &scratch));
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
  for (std::size_t i = 0; i < type.keys.size(); ++i) {
    const FieldDescriptor& field = *type.keys[i];
    const std::size_t size = component_size(identity);
    if (size == 0 || identity[0] != type.key_letters[i]) return false;
    if (type.key_slots.empty()) {
      fill_key(message, field, identity.substr(0, size));
    } else {
      fill_slot(message, *type.key_slots[i], identity.substr(0, size));
    }
    identity.remove_prefix(size);
  }
  return identity.empty();
}

}  // namespace vu::store
