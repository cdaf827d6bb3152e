#include "stub_file.h"

#include <google/protobuf/descriptor.pb.h>

#include "python_names.h"
#include "writer.h"

namespace vu {

namespace pb = google::protobuf;
using Type = pb::FieldDescriptor;

namespace {

// The two types of a field: what reading gives and what may be assigned.
struct Types {
  std::string read;
  std::string write;
};

Types element_types(const Type& field) {
  switch (field.type()) {
    case Type::TYPE_MESSAGE:
    case Type::TYPE_GROUP: {
      const std::string path = class_path(*field.message_type(), *field.file());
      if (path.empty()) return {"typing.Any", "typing.Any"};  // no module to import
      return {path, "typing.Union[" + path + ", typing.Mapping[builtins.str, typing.Any]]"};
    }
    case Type::TYPE_ENUM:
      return {"builtins.int", "typing.Union[builtins.int, builtins.str]"};
    case Type::TYPE_STRING:
      return {"builtins.str", "builtins.str"};
    case Type::TYPE_BYTES:
      return {"builtins.bytes", "builtins.bytes"};
    case Type::TYPE_BOOL:
      return {"builtins.bool", "builtins.bool"};
    case Type::TYPE_FLOAT:
    case Type::TYPE_DOUBLE:
      return {"builtins.float", "builtins.float"};
    default:
      return {"builtins.int", "builtins.int"};
  }
}

Types field_types(const Type& field) {
  if (field.is_map()) {
    const Types key = element_types(*field.message_type()->map_key());
    const Type& value_field = *field.message_type()->map_value();
    // Named from the file of the field: the entry type is in the same one.
    const Types value = element_types(value_field);
    const bool messages = value_field.cpp_type() == Type::CPPTYPE_MESSAGE;
    return {(messages ? "vu_message.MessageMap[" : "vu_message.ScalarMap[") + key.read + ", " +
                value.read + "]",
            "typing.Mapping[" + key.read + ", " + value.write + "]"};
  }
  Types element = element_types(field);
  if (!field.is_repeated()) return element;
  const bool messages = field.cpp_type() == Type::CPPTYPE_MESSAGE;
  return {(messages ? "vu_message.RepeatedMessages[" : "vu_message.RepeatedScalars[") +
              element.read + "]",
          "typing.Iterable[" + element.write + "]"};
}

// The comment of an element of the .proto file, where it has one.
template <typename Descriptor>
void write_comment(Writer& out, const Descriptor& descriptor) {
  const std::vector<std::string> comment = comment_of(descriptor);
  if (!comment.empty()) out.line(docstring(comment, out.margin()));
}

void write_enum(Writer& out, const pb::EnumDescriptor& type) {
  const std::string name = python_name(type.name());
  out.line("class " + name + "(vu_enum.Enum):");
  out.indent();
  write_comment(out, type);
  for (int i = 0; i < type.value_count(); ++i) {
    out.line(enumerator_name(type.value(i)->name()) + " = " +
             std::to_string(type.value(i)->number()));
  }
  out.dedent();
  out.line();
  for (int i = 0; i < type.value_count(); ++i) {
    out.line(enumerator_name(type.value(i)->name()) + ": " +
             (type.containing_type() == nullptr ? name : "typing.ClassVar[builtins.int]"));
  }
}

void write_constructors(Writer& out, const pb::Descriptor& type) {
  std::string self = "self";
  while (type.FindFieldByName(self) != nullptr) self += "_";
  bool others = false;  // fields that cannot be written as parameters
  out.line("@typing.overload");
  out.line("def __init__(" + self + ", __address: builtins.int) -> None: ...");
  out.line("@typing.overload");
  out.line("def __init__(");
  out.indent();
  out.line(self + ",");
  bool star = false;
  for (int i = 0; i < type.field_count(); ++i) {
    const Type& field = *type.field(i);
    if (!is_plain_name(field.name())) {
      others = true;
      continue;
    }
    if (!star) out.line("*,");
    star = true;
    out.line(field.name() + ": typing.Optional[" + field_types(field).write + "] = ...,");
  }
  if (others) out.line("**fields: typing.Any,");
  out.dedent();
  out.line(") -> None: ...");
}

void write_message(Writer& out, const pb::Descriptor& type) {
  out.line("class " + python_name(type.name()) + "(vu_message.Message):");
  out.indent();
  write_comment(out, type);
  for (int i = 0; i < type.enum_type_count(); ++i) write_enum(out, *type.enum_type(i));
  for (int i = 0; i < type.nested_type_count(); ++i) {
    if (!type.nested_type(i)->options().map_entry()) write_message(out, *type.nested_type(i));
  }
  for (int i = 0; i < type.field_count(); ++i) {
    const Type& field = *type.field(i);
    std::string name = field.name();
    if (name.compare(0, 2, "__") != 0) {
      out.line(field_number_name(name) + ": typing.ClassVar[builtins.int]");
    }
    if (!is_plain_name(name)) {
      name = python_name(name);
      if (name == field.name() || type.FindFieldByName(name) != nullptr) continue;
    }
    const Types types = field_types(field);
    out.line(name + ": vu_message.Field[" + types.read + ", " + types.write + "]" +
             (is_method_name(name) ? "  # type: ignore[assignment]" : ""));
    write_comment(out, field);
  }
  write_constructors(out, type);
  out.dedent();
  out.line();
}

}  // namespace

std::string stub_text(const pb::FileDescriptor& file) {
  Writer out;
  out.line("# Made by protoc-gen-vu from " + file.name() + "; changes are lost.");
  out.line("import builtins");
  out.line("import typing");
  out.line();
  out.line("import vu_enum");
  out.line("import vu_message");
  out.line("import vu_well_known");
  for (int i = 0; i < file.dependency_count(); ++i) {
    if (!is_bundled(*file.dependency(i))) out.line("import " + module_name(*file.dependency(i)));
  }
  for (int i = 0; i < file.public_dependency_count(); ++i) {
    if (is_bundled(*file.public_dependency(i))) continue;
    out.line("from " + module_name(*file.public_dependency(i)) + " import *");
  }
  out.line();
  for (int i = 0; i < file.enum_type_count(); ++i) write_enum(out, *file.enum_type(i));
  for (int i = 0; i < file.message_type_count(); ++i) write_message(out, *file.message_type(i));
  return out.text();
}

}  // namespace vu
