#include "json_limits.h"

#include <google/protobuf/stubs/common.h>

#include <cmath>

#include "errors.h"
#include "type_walk.h"

namespace vu {

namespace pb = google::protobuf;
using Type = pb::FieldDescriptor;

namespace {

bool is_loose_text(const Type& field) {
  return field.type() == Type::TYPE_STRING &&
         field.file()->syntax() != pb::FileDescriptor::SYNTAX_PROTO3;
}

bool has_unsayable_default(const Type& field) {
  if (!field.has_default_value()) return false;
  switch (field.type()) {
    case Type::TYPE_BYTES:
      return true;
    case Type::TYPE_DOUBLE:
      return !std::isfinite(field.default_value_double());
    case Type::TYPE_FLOAT:
      return !std::isfinite(field.default_value_float());
    default:
      return false;
  }
}

// A field of the type, or of one within it, for which `holds` is true; or null.
template <typename Predicate>
const Type* find_field_where(const pb::Descriptor& type, const Predicate& holds) {
  const Type* found = nullptr;
  anywhere(type, [&](const pb::Descriptor& within) {
    for (int i = 0; i < within.field_count() && found == nullptr; ++i) {
      if (holds(*within.field(i))) found = within.field(i);
    }
    return found != nullptr;
  });
  return found;
}

void check_texts(const pb::Message& message, const std::string& path) {
  const pb::Reflection& get = *message.GetReflection();
  std::vector<const Type*> fields;
  get.ListFields(message, &fields);
  for (const Type* field : fields) {
    const bool repeated = field->is_repeated();
    const int count = repeated ? get.FieldSize(message, field) : 1;
    for (int i = 0; i < count; ++i) {
      const std::string here =
          path + "." + field->name() + (repeated ? "[" + std::to_string(i) + "]" : "");
      if (field->cpp_type() == Type::CPPTYPE_MESSAGE) {
        check_texts(
            repeated ? get.GetRepeatedMessage(message, field, i) : get.GetMessage(message, field),
            here);
      } else if (field->type() == Type::TYPE_STRING) {
        std::string scratch;
        const std::string& text = repeated
                                      ? get.GetRepeatedStringReference(message, field, i, &scratch)
                                      : get.GetStringReference(message, field, &scratch);
        if (!pb::internal::IsStructurallyValidUTF8(text)) {
          py::raise(encode_error, "%s: the text is not UTF-8", here.c_str());
        }
      }
    }
  }
}

}  // namespace

void check_groups(PyObject* error, const MessageInfo& info) {
  const Type* const group = find_field_where(
      *info.descriptor, [](const Type& field) { return field.type() == Type::TYPE_GROUP; });
  if (group != nullptr) {
    py::raise(error, "%s: a group, for which there is no JSON", group->full_name().c_str());
  }
}

void check_defaults(const MessageInfo& info) {
  const Type* const field = find_field_where(*info.descriptor, has_unsayable_default);
  if (field != nullptr) {
    py::raise(encode_error, "%s: its default value cannot be included in JSON",
              field->full_name().c_str());
  }
}

void check_texts(const MessageInfo& info, const std::string& bytes) {
  if (find_field_where(*info.descriptor, is_loose_text) == nullptr) return;
  // Of a copy: looking at maps as lists would leave them behind as such.
  const std::unique_ptr<NativeMessage> copy = new_native(info);
  copy->ParsePartialFromString(bytes);
  check_texts(*copy, info.name());
}

}  // namespace vu
