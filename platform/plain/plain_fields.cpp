#include "plain_fields.h"

#include <google/protobuf/generated_message_reflection.h>
#include <google/protobuf/wire_format.h>

#include <algorithm>
#include <utility>

namespace google::protobuf {

// A friend of Reflection by its name, and of libprotobuf's makers for this purpose.
class MessageLayoutInspector {
 public:
  static const internal::ReflectionSchema& schema(const Reflection& reflection) {
    return reflection.schema_;
  }
};

}  // namespace google::protobuf

namespace vu::plain {

namespace {

namespace pb = google::protobuf;
using pb::FieldDescriptor;

bool is_plain_field(const FieldDescriptor& field) {
  if (field.is_repeated() || field.real_containing_oneof() != nullptr) return false;
  switch (field.cpp_type()) {
    case FieldDescriptor::CPPTYPE_MESSAGE:
      return false;
    case FieldDescriptor::CPPTYPE_STRING:
      return field.default_value_string().empty();
    default:
      return true;
  }
}

std::uint8_t size_of(const FieldDescriptor& field) {
  switch (field.cpp_type()) {
    case FieldDescriptor::CPPTYPE_STRING:
    case FieldDescriptor::CPPTYPE_MESSAGE:
      return 0;
    case FieldDescriptor::CPPTYPE_BOOL:
      return sizeof(std::uint8_t);
    case FieldDescriptor::CPPTYPE_INT64:
    case FieldDescriptor::CPPTYPE_UINT64:
    case FieldDescriptor::CPPTYPE_DOUBLE:
      return sizeof(std::uint64_t);
    default:
      return sizeof(std::uint32_t);
  }
}

Slot describe(const FieldDescriptor& field, const pb::internal::ReflectionSchema& schema) {
  Slot slot;
  slot.field = &field;
  slot.type = field.type();
  slot.size = size_of(field);
  const bool is_proto3 = field.file()->syntax() == pb::FileDescriptor::SYNTAX_PROTO3;
  slot.utf8 = slot.type == FieldDescriptor::TYPE_STRING && is_proto3;
  slot.closed = slot.type == FieldDescriptor::TYPE_ENUM && !is_proto3;
  slot.tag = pb::internal::WireFormat::MakeTag(&field);
  slot.offset = schema.GetFieldOffset(&field);
  const std::uint32_t bit = field.has_presence() && schema.HasHasbits()
                                ? schema.HasBitIndex(&field)
                                : static_cast<std::uint32_t>(-1);
  if (bit != static_cast<std::uint32_t>(-1)) {
    slot.has_offset = schema.HasBitsOffset() + bit / 32 * 4;
    slot.has_mask = std::uint32_t{1} << bit % 32;
  }
  return slot;
}

// Whether what reflection writes is read from memory, and the other way round.
template <typename T, typename Get, typename Set>
bool agrees(const Message& prototype, const Slot& slot, T sample, Get get, Set set) {
  const pb::Reflection& reflection = *prototype.GetReflection();
  const std::unique_ptr<Message> one(prototype.New());
  const std::unique_ptr<Message> other(prototype.New());
  if (has(*one, slot) || read<T>(*one, slot) != (reflection.*get)(*one, slot.field)) return false;
  (reflection.*set)(one.get(), slot.field, sample);
  if (!has(*one, slot) || read<T>(*one, slot) != sample) return false;
  write(*other, slot, sample);
  if (!reflection.HasField(*other, slot.field)) return false;
  if ((reflection.*get)(*other, slot.field) != sample) return false;
  clear(*other, slot);
  return !reflection.HasField(*other, slot.field) &&
         (reflection.*get)(*other, slot.field) == (reflection.*get)(prototype, slot.field);
}

bool text_agrees(const Message& prototype, const Slot& slot) {
  const pb::Reflection& reflection = *prototype.GetReflection();
  const std::string sample = "a text that is too long to be held in place";
  const std::unique_ptr<Message> one(prototype.New());
  const std::unique_ptr<Message> other(prototype.New());
  if (has(*one, slot) || !read_text(*one, slot).empty()) return false;
  reflection.SetString(one.get(), slot.field, sample);
  if (!has(*one, slot) || read_text(*one, slot) != sample) return false;
  write_text(*other, slot, sample.data(), sample.size());
  if (!reflection.HasField(*other, slot.field)) return false;
  if (reflection.GetString(*other, slot.field) != sample) return false;
  clear(*other, slot);
  return !reflection.HasField(*other, slot.field) &&
         reflection.GetString(*other, slot.field).empty();
}

bool is_right(const Message& prototype, const Slot& slot) {
  using R = pb::Reflection;
  switch (slot.field->cpp_type()) {
    case FieldDescriptor::CPPTYPE_INT32:
      return agrees<std::int32_t>(prototype, slot, -7, &R::GetInt32, &R::SetInt32);
    case FieldDescriptor::CPPTYPE_INT64:
      return agrees<std::int64_t>(prototype, slot, INT64_MIN + 7, &R::GetInt64, &R::SetInt64);
    case FieldDescriptor::CPPTYPE_UINT32:
      return agrees<std::uint32_t>(prototype, slot, 4000000007, &R::GetUInt32, &R::SetUInt32);
    case FieldDescriptor::CPPTYPE_UINT64:
      return agrees<std::uint64_t>(prototype, slot, UINT64_MAX - 7, &R::GetUInt64, &R::SetUInt64);
    case FieldDescriptor::CPPTYPE_DOUBLE:
      return agrees<double>(prototype, slot, 7.25, &R::GetDouble, &R::SetDouble);
    case FieldDescriptor::CPPTYPE_FLOAT:
      return agrees<float>(prototype, slot, 7.25F, &R::GetFloat, &R::SetFloat);
    case FieldDescriptor::CPPTYPE_BOOL:
      return agrees<bool>(prototype, slot, true, &R::GetBool, &R::SetBool);
    case FieldDescriptor::CPPTYPE_ENUM: {
      const pb::EnumDescriptor& names = *slot.field->enum_type();
      const int sample = names.value(names.value_count() - 1)->number();
      // A presence that only the value shows needs one that is not zero.
      if (slot.has_mask == 0 && sample == 0) {
        return agrees<std::int32_t>(prototype, slot, 1, &R::GetEnumValue, &R::SetEnumValue);
      }
      return agrees<std::int32_t>(prototype, slot, sample, &R::GetEnumValue, &R::SetEnumValue);
    }
    case FieldDescriptor::CPPTYPE_STRING:
      return text_agrees(prototype, slot);
    case FieldDescriptor::CPPTYPE_MESSAGE:
      break;
  }
  return false;
}

// The bits of a number; those of a float or double too.
std::uint64_t bits_of(const Message& message, const Slot& slot) {
  switch (slot.size) {
    case sizeof(std::uint8_t):
      return read<std::uint8_t>(message, slot);
    case sizeof(std::uint32_t):
      return read<std::uint32_t>(message, slot);
    default:
      return read<std::uint64_t>(message, slot);
  }
}

}  // namespace

void clear(Message& message, const Slot& slot) {
  char* const at = detail::at(message, slot.offset);
  switch (slot.size) {
    case 0: {
      auto& text = *static_cast<pb::internal::ArenaStringPtr*>(static_cast<void*>(at));
      if (!text.IsDefault()) text.UnsafeMutablePointer()->clear();
      break;
    }
    case sizeof(std::uint8_t):
      *at = static_cast<char>(slot.default_bits);
      break;
    case sizeof(std::uint32_t): {
      const auto bits = static_cast<std::uint32_t>(slot.default_bits);
      std::memcpy(at, &bits, sizeof(bits));
      break;
    }
    default:
      std::memcpy(at, &slot.default_bits, sizeof(slot.default_bits));
  }
  if (slot.has_mask == 0) return;
  std::uint32_t word = 0;
  std::memcpy(&word, detail::at(message, slot.has_offset), sizeof(word));
  word &= ~slot.has_mask;
  std::memcpy(detail::at(message, slot.has_offset), &word, sizeof(word));
}

bool has(const Message& message, const Slot& slot) {
  if (slot.has_mask != 0) {
    std::uint32_t word = 0;
    std::memcpy(&word, detail::at(message, slot.has_offset), sizeof(word));
    return (word & slot.has_mask) != 0;
  }
  return slot.is_text() ? !read_text(message, slot).empty() : bits_of(message, slot) != 0;
}

bool is_default(const Message& message, const Slot& slot) {
  if (slot.is_text()) return read_text(message, slot).empty();  // strings have no other default
  return bits_of(message, slot) == slot.default_bits;
}

Fields::Fields(const Message& prototype) {
  const pb::Reflection& reflection = *prototype.GetReflection();
  // What was generated and compiled is fast by itself, and lies elsewhere.
  if (reflection.GetMessageFactory() == pb::MessageFactory::generated_factory()) return;
  const auto& schema = pb::MessageLayoutInspector::schema(reflection);
  const pb::Descriptor& type = *prototype.GetDescriptor();
  for (int i = 0; i < type.field_count(); ++i) {
    const FieldDescriptor& field = *type.field(i);
    if (!is_plain_field(field)) continue;
    Slot slot = describe(field, schema);
    if (!slot.is_text()) slot.default_bits = bits_of(prototype, slot);
    if (is_right(prototype, slot)) slots_.push_back(slot);
  }
  std::sort(slots_.begin(), slots_.end(), [](const Slot& one, const Slot& other) {
    return one.field->number() < other.field->number();
  });
  is_plain_ = slots_.size() == static_cast<std::size_t>(type.field_count()) &&
              type.extension_range_count() == 0;
}

const Slot* Fields::slot(const FieldDescriptor& field) const {
  const auto found = std::find_if(slots_.begin(), slots_.end(),
                                  [&](const Slot& slot) { return slot.field == &field; });
  return found == slots_.end() ? nullptr : &*found;
}

}  // namespace vu::plain
