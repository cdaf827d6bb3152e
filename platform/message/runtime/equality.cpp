#include "equality.h"

#include <google/protobuf/reflection.h>
#include <google/protobuf/unknown_field_set.h>
#include <google/protobuf/util/message_differencer.h>

#include <algorithm>

namespace vu {

namespace {

namespace pb = google::protobuf;
using Type = pb::FieldDescriptor;

template <typename T>
bool same(const NativeMessage& one, const NativeMessage& other, const plain::Slot& slot) {
  return plain::read<T>(one, slot) == plain::read<T>(other, slot);
}

bool same_value(const NativeMessage& one, const NativeMessage& other, const plain::Slot& slot) {
  switch (slot.field->cpp_type()) {
    case Type::CPPTYPE_STRING:
      return plain::read_text(one, slot) == plain::read_text(other, slot);
    case Type::CPPTYPE_DOUBLE:
      return same<double>(one, other, slot);
    case Type::CPPTYPE_FLOAT:
      return same<float>(one, other, slot);
    case Type::CPPTYPE_BOOL:
      return same<bool>(one, other, slot);
    case Type::CPPTYPE_INT64:
    case Type::CPPTYPE_UINT64:
      return same<std::uint64_t>(one, other, slot);
    default:
      return same<std::uint32_t>(one, other, slot);
  }
}

template <typename T>
bool same_numbers(const NativeMessage& one, const NativeMessage& other, const Field& field) {
  const auto left = field.reflection->GetRepeatedFieldRef<T>(one, field.descriptor);
  const auto right = field.reflection->GetRepeatedFieldRef<T>(other, field.descriptor);
  return std::equal(left.begin(), left.end(), right.begin(), right.end());
}

bool same_elements(const NativeMessage& one, const NativeMessage& other, Field& field) {
  const pb::Reflection& get = *field.reflection;
  const int count = get.FieldSize(one, field.descriptor);
  if (count != get.FieldSize(other, field.descriptor)) return false;
  switch (field.descriptor->cpp_type()) {
    case Type::CPPTYPE_INT32:
    case Type::CPPTYPE_ENUM:
      return same_numbers<std::int32_t>(one, other, field);
    case Type::CPPTYPE_UINT32:
      return same_numbers<std::uint32_t>(one, other, field);
    case Type::CPPTYPE_INT64:
      return same_numbers<std::int64_t>(one, other, field);
    case Type::CPPTYPE_UINT64:
      return same_numbers<std::uint64_t>(one, other, field);
    case Type::CPPTYPE_DOUBLE:
      return same_numbers<double>(one, other, field);
    case Type::CPPTYPE_FLOAT:
      return same_numbers<float>(one, other, field);
    case Type::CPPTYPE_BOOL:
      return same_numbers<bool>(one, other, field);
    case Type::CPPTYPE_STRING:
      return same_numbers<std::string>(one, other, field);
    case Type::CPPTYPE_MESSAGE:
      break;
  }
  for (int i = 0; i < count; ++i) {
    if (!are_equal(element_info(field), get.GetRepeatedMessage(one, field.descriptor, i),
                   get.GetRepeatedMessage(other, field.descriptor, i))) {
      return false;
    }
  }
  return true;
}

bool same_message(const NativeMessage& one, const NativeMessage& other, Field& field) {
  const pb::Reflection& get = *field.reflection;
  const bool there = get.HasField(one, field.descriptor);
  if (there != get.HasField(other, field.descriptor)) return false;
  return !there || are_equal(element_info(field), get.GetMessage(one, field.descriptor),
                             get.GetMessage(other, field.descriptor));
}

// Whether the type has nothing but plain fields, messages and lists.
bool is_simple(const MessageInfo& info) {
  return info.descriptor->extension_range_count() == 0 &&
         std::all_of(info.fields->begin(), info.fields->end(), [](const Field* field) {
           return field->slot != nullptr || (!field->map && (field->repeated || field->message));
         });
}

bool has_unknown(const MessageInfo& info, const NativeMessage& message) {
  return !info.reflection->GetUnknownFields(message).empty();
}

}  // namespace

bool are_equal(MessageInfo& info, const NativeMessage& one, const NativeMessage& other) {
  if (!is_simple(info) || has_unknown(info, one) || has_unknown(info, other)) {
    return pb::util::MessageDifferencer::Equals(one, other);
  }
  return std::all_of(info.fields->begin(), info.fields->end(), [&](Field* field) {
    if (field->slot != nullptr) {
      const bool there = plain::has(one, *field->slot);
      return there == plain::has(other, *field->slot) &&
             (!there || same_value(one, other, *field->slot));
    }
    return field->repeated ? same_elements(one, other, *field) : same_message(one, other, *field);
  });
}

}  // namespace vu
