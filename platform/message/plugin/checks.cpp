#include "checks.h"

#include <map>
#include <set>

#include "names.h"
#include "options.h"

namespace vu {

namespace pb = google::protobuf;
using Type = pb::FieldDescriptor;

namespace {

// Thrown with the text for the user; caught in find_mistake.
struct Mistake {
  std::string text;
};

[[noreturn]] void refuse(const Type& field, const std::string& reason) {
  throw Mistake{"message " +
                (field.is_extension() ? "(extension)" : field.containing_type()->full_name()) +
                ", field " + field.name() + ": " + reason};
}

bool is_integer(const Type& field) {
  switch (field.cpp_type()) {
    case Type::CPPTYPE_INT32:
    case Type::CPPTYPE_INT64:
    case Type::CPPTYPE_UINT32:
    case Type::CPPTYPE_UINT64:
      return true;
    default:
      return false;
  }
}

void check_key(const Type& field, std::uint64_t position) {
  if (position < 1) refuse(field, "a key position must be at least 1, not 0");
  if (field.is_map()) refuse(field, "a map cannot be a key field");
  if (field.is_repeated()) refuse(field, "a repeated field cannot be a key field");
  if (field.cpp_type() == Type::CPPTYPE_MESSAGE) refuse(field, "a message cannot be a key field");
  if (field.cpp_type() == Type::CPPTYPE_FLOAT || field.cpp_type() == Type::CPPTYPE_DOUBLE) {
    refuse(field, std::string("a ") + field.type_name() + " cannot be a key field");
  }
  if (field.real_containing_oneof() != nullptr) {
    refuse(field, "a member of the oneof " + field.real_containing_oneof()->name() +
                      " cannot be a key field");
  }
}

void check_counter(const Type& field, bool is_key) {
  if (is_key) refuse(field, "a key field cannot be the counter");
  if (field.is_repeated() || !is_integer(field)) {
    refuse(field, "the counter must be a single integer");
  }
}

void check_fields(const pb::Descriptor& message) {
  std::map<std::uint64_t, const Type*> keys;
  const Type* counter = nullptr;
  for (int i = 0; i < message.field_count(); ++i) {
    const Type& field = *message.field(i);
    if (is_attribute_of_all(field.name())) {
      refuse(field, "every message class has an attribute of this name; choose another");
    }
    const auto position = field_option(field, kKeyOption);
    if (position) {
      check_key(field, *position);
      const auto [other, fresh] = keys.emplace(*position, &field);
      if (!fresh) {
        refuse(field, "key position " + std::to_string(*position) + " is already that of field " +
                          other->second->name());
      }
    }
    if (is_counter(field)) {
      check_counter(field, position.has_value());
      if (counter != nullptr) refuse(field, "field " + counter->name() + " is the counter already");
      counter = &field;
    }
  }
  std::uint64_t expected = 1;
  for (const auto& [position, field] : keys) {
    if (position != expected) {
      refuse(*field, "key position " + std::to_string(position) + ", but no field has position " +
                         std::to_string(expected));
    }
    ++expected;
  }
}

void check_extension(const Type& field) {
  if (field_option(field, kKeyOption) || is_counter(field)) {
    refuse(field, "an extension can be neither a key field nor the counter");
  }
}

void check_message(const pb::Descriptor& message) {
  check_fields(message);
  for (int i = 0; i < message.extension_count(); ++i) check_extension(*message.extension(i));
  for (int i = 0; i < message.nested_type_count(); ++i) {
    if (!message.nested_type(i)->options().map_entry()) check_message(*message.nested_type(i));
  }
}

}  // namespace

std::string find_mistake(const pb::FileDescriptor& file) {
  try {
    for (int i = 0; i < file.extension_count(); ++i) check_extension(*file.extension(i));
    for (int i = 0; i < file.message_type_count(); ++i) check_message(*file.message_type(i));
  } catch (const Mistake& mistake) {
    return mistake.text;
  }
  return "";
}

}  // namespace vu
