#include "type_info.h"

#include <google/protobuf/descriptor.pb.h>
#include <google/protobuf/unknown_field_set.h>

#include <map>
#include <memory>
#include <unordered_map>

#include "identity.h"
#include "vu_options.h"

namespace vu::store {

namespace {

using google::protobuf::FieldDescriptor;
using google::protobuf::Message;

// The value of a field option that nobody may have linked generated code for: then it
// sits in the unknown fields, else among the known extensions.
bool read_option(const FieldDescriptor& field, int number, std::uint64_t& value) {
  const auto& options = field.options();
  const auto* reflection = options.GetReflection();
  bool found = false;
  const auto& unknown = reflection->GetUnknownFields(options);
  for (int i = 0; i < unknown.field_count(); ++i) {
    const auto& option = unknown.field(i);
    if (option.number() != number) continue;
    if (option.type() != google::protobuf::UnknownField::TYPE_VARINT) continue;
    value = option.varint();
    found = true;
  }
  std::vector<const FieldDescriptor*> set;
  reflection->ListFields(options, &set);
  for (const auto* option : set) {
    if (option->number() != number) continue;
    if (option->cpp_type() == FieldDescriptor::CPPTYPE_UINT32) {
      value = reflection->GetUInt32(options, option);
      found = true;
    } else if (option->cpp_type() == FieldDescriptor::CPPTYPE_BOOL) {
      value = reflection->GetBool(options, option) ? 1 : 0;
      found = true;
    }
  }
  return found;
}

bool can_be_key(const FieldDescriptor& field) {
  if (field.is_repeated() || field.real_containing_oneof() != nullptr) return false;
  switch (field.cpp_type()) {
    case FieldDescriptor::CPPTYPE_FLOAT:
    case FieldDescriptor::CPPTYPE_DOUBLE:
    case FieldDescriptor::CPPTYPE_MESSAGE:
      return false;
    default:
      return true;
  }
}

bool describe_counter(const FieldDescriptor& field, Counter& counter) {
  if (field.is_repeated() || field.real_containing_oneof() != nullptr) return false;
  counter.number = static_cast<std::uint32_t>(field.number());
  switch (field.cpp_type()) {
    case FieldDescriptor::CPPTYPE_INT32:
      counter.is_32_bit = true;
      counter.initial = field.default_value_int32();
      break;
    case FieldDescriptor::CPPTYPE_INT64:
      counter.initial = field.default_value_int64();
      break;
    case FieldDescriptor::CPPTYPE_UINT32:
      counter.is_32_bit = true;
      counter.is_signed = false;
      counter.initial = field.default_value_uint32();
      break;
    case FieldDescriptor::CPPTYPE_UINT64:
      counter.is_signed = false;
      counter.initial = static_cast<std::int64_t>(field.default_value_uint64());
      break;
    default:
      return false;
  }
  switch (field.type()) {
    case FieldDescriptor::TYPE_SINT32:
    case FieldDescriptor::TYPE_SINT64:
      counter.form = IntegerForm::kZigzag;
      break;
    case FieldDescriptor::TYPE_FIXED32:
    case FieldDescriptor::TYPE_SFIXED32:
      counter.form = IntegerForm::kFixed32;
      break;
    case FieldDescriptor::TYPE_FIXED64:
    case FieldDescriptor::TYPE_SFIXED64:
      counter.form = IntegerForm::kFixed64;
      break;
    default:
      counter.form = IntegerForm::kPlain;
  }
  return true;
}

std::uint32_t id_of(const std::string& name) {
  static auto* const ids = new std::unordered_map<std::string, std::uint32_t>();
  return ids->try_emplace(name, static_cast<std::uint32_t>(ids->size())).first->second;
}

// Null where the type's options contradict each other.
std::unique_ptr<TypeInfo> describe(const google::protobuf::Descriptor& descriptor) {
  auto type = std::make_unique<TypeInfo>();
  type->name = descriptor.full_name();
  type->descriptor = &descriptor;
  std::map<std::uint64_t, const FieldDescriptor*> keys;
  for (int i = 0; i < descriptor.field_count(); ++i) {
    const FieldDescriptor& field = *descriptor.field(i);
    std::uint64_t position = 0;
    const bool is_key = read_option(field, kKeyOption, position);
    if (is_key) {
      if (position == 0 || !can_be_key(field)) return nullptr;
      if (!keys.emplace(position, &field).second) return nullptr;
    }
    std::uint64_t counts = 0;
    if (read_option(field, kCounterOption, counts) && counts != 0) {
      if (is_key || type->counts || !describe_counter(field, type->counter)) return nullptr;
      type->counts = true;
    }
  }
  for (const auto& [position, field] : keys) {
    if (position != type->keys.size() + 1) return nullptr;
    type->keys.push_back(field);
    type->key_letters.push_back(letter_of(*field));
  }
  type->id = id_of(type->name);
  return type;
}

void find_slots(TypeInfo& type) {
  type.plain_fields = std::make_unique<plain::Fields>(*type.prototype);
  type.spare = std::make_unique<SpareMessages>(*type.prototype, *type.plain_fields);
  for (const FieldDescriptor* key : type.keys) {
    const plain::Slot* const slot = type.plain_fields->slot(*key);
    if (slot == nullptr) {
      type.key_slots.clear();
      return;
    }
    type.key_slots.push_back(slot);
  }
}

}  // namespace

const TypeInfo* type_of(const Message& message) {
  // By reflection, not by descriptor: one descriptor may have several factories.
  static auto* const types =
      new std::unordered_map<const google::protobuf::Reflection*, std::unique_ptr<TypeInfo>>();
  const auto* reflection = message.GetReflection();
  const auto known = types->find(reflection);
  if (known != types->end()) return known->second.get();
  const auto* descriptor = message.GetDescriptor();
  auto type = describe(*descriptor);
  if (type) {
    type->reflection = reflection;
    type->prototype = reflection->GetMessageFactory()->GetPrototype(descriptor);
    find_slots(*type);
  }
  return types->emplace(reflection, std::move(type)).first->second.get();
}

}  // namespace vu::store
