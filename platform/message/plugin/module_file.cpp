#include "module_file.h"

#include <google/protobuf/descriptor.pb.h>

#include <cctype>

#include "names.h"
#include "options.h"
#include "python_names.h"
#include "writer.h"

namespace vu {

namespace pb = google::protobuf;

namespace {

constexpr std::size_t kBytesWidth = 88;

// The bytes as lines of Python literals.
void write_bytes(Writer& out, const std::string& bytes) {
  static constexpr const char* kDigits = "0123456789abcdef";
  std::string line;
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= 0x20 && byte < 0x7f && c != '"' && c != '\\') {
      line += c;
    } else {
      line += std::string("\\x") + kDigits[byte >> 4] + kDigits[byte & 15];
    }
    if (line.size() >= kBytesWidth) {
      out.line("b\"" + line + "\"");
      line.clear();
    }
  }
  if (!line.empty() || bytes.empty()) out.line("b\"" + line + "\"");
}

// What a reader wants to know of a field: "repeated string", "uint64, counter".
std::string field_note(const pb::FieldDescriptor& field) {
  std::string type;
  const auto type_of = [](const pb::FieldDescriptor& of) {
    if (of.message_type() != nullptr) return of.message_type()->full_name();
    if (of.enum_type() != nullptr) return of.enum_type()->full_name();
    return std::string(of.type_name());
  };
  if (field.is_map()) {
    type = "map<" + type_of(*field.message_type()->map_key()) + ", " +
           type_of(*field.message_type()->map_value()) + ">";
  } else {
    type = (field.is_repeated() ? "repeated " : "") + type_of(field);
  }
  if (const auto position = key_position(field)) type += ", key " + std::to_string(*position);
  if (is_counter(field)) type += ", counter";
  if (field.real_containing_oneof() != nullptr) {
    type += ", in oneof " + field.real_containing_oneof()->name();
  }
  return type;
}

void write_enum(Writer& out, const pb::EnumDescriptor& type) {
  out.line("class " + python_name(type.name()) + "(_enum.Enum):");
  out.indent();
  const std::vector<std::string> comment = comment_of(type);
  out.line(docstring(comment.empty() ? std::vector<std::string>{type.full_name()} : comment,
                     out.margin()));
  out.line();
  for (int i = 0; i < type.value_count(); ++i) {
    out.line(enumerator_name(type.value(i)->name()) + " = " +
             std::to_string(type.value(i)->number()));
  }
  out.dedent();
  out.line();
  // The values stand beside the enum too, as in the .proto file.
  for (int i = 0; i < type.value_count(); ++i) {
    const std::string name = enumerator_name(type.value(i)->name());
    std::string line = name;
    line += " = " + python_name(type.name()) + "." + name;
    out.line(line);
  }
}

void write_field(Writer& out, const pb::FieldDescriptor& field) {
  const std::string& name = field.name();
  if (name.compare(0, 2, "__") == 0) return;  // a class body would rename it; Message binds it
  out.line(field_number_name(name) + " = " + std::to_string(field.number()));
  const std::string value = " = DESCRIPTOR.field(\"" + name + "\")  # " + field_note(field);
  if (is_plain_name(name)) {
    out.line(name + value);
  } else if (python_name(name) != name &&
             field.containing_type()->FindFieldByName(python_name(name)) == nullptr) {
    out.line(python_name(name) + value + "; also " + name);
  }
}

void write_message(Writer& out, const pb::Descriptor& type) {
  out.line("class " + python_name(type.name()) + "(_message.Message):");
  out.indent();
  const std::vector<std::string> comment = comment_of(type);
  out.line(docstring(comment.empty() ? std::vector<std::string>{type.full_name()} : comment,
                     out.margin()));
  out.line();
  out.line("__slots__ = ()");
  out.line("DESCRIPTOR = _FILE.message(\"" + type.full_name() + "\")");
  out.line("package_name = \"" + package_name(type) + "\"");
  out.line("short_name = \"" + short_name(type) + "\"");
  for (int i = 0; i < type.enum_type_count(); ++i) {
    out.line();
    write_enum(out, *type.enum_type(i));
  }
  for (int i = 0; i < type.nested_type_count(); ++i) {
    if (type.nested_type(i)->options().map_entry()) continue;
    out.line();
    write_message(out, *type.nested_type(i));
  }
  if (type.field_count() != 0) out.line();
  for (int i = 0; i < type.field_count(); ++i) write_field(out, *type.field(i));
  out.dedent();
}

// Whether there is an enum in a file or a message.
template <typename Scope>
bool declares_enums(const Scope& scope, int message_count,
                    const pb::Descriptor* (Scope::*message)(int) const) {
  if (scope.enum_type_count() != 0) return true;
  for (int i = 0; i < message_count; ++i) {
    const pb::Descriptor& type = *(scope.*message)(i);
    if (declares_enums(type, type.nested_type_count(), &pb::Descriptor::nested_type)) return true;
  }
  return false;
}

void write_imports(Writer& out, const pb::FileDescriptor& file) {
  // The interpreter's enum takes longer to import than all else here.
  if (declares_enums(file, file.message_type_count(), &pb::FileDescriptor::message_type)) {
    out.line("import vu_enum as _enum");
  }
  out.line("import vu_message as _message");
  for (int i = 0; i < file.dependency_count(); ++i) {
    if (is_bundled(*file.dependency(i))) continue;
    out.line("import " + module_name(*file.dependency(i)) + "  # noqa: F401");
  }
  for (int i = 0; i < file.public_dependency_count(); ++i) {
    if (is_bundled(*file.public_dependency(i))) continue;
    out.line("from " + module_name(*file.public_dependency(i)) + " import *  # noqa: F401,F403");
  }
}

}  // namespace

std::string module_text(const pb::FileDescriptor& file) {
  Writer out;
  out.line("# Made by protoc-gen-vu from " + file.name() + "; changes are lost.");
  out.line(docstring({"Messages of " + file.name() + "."}, ""));
  out.line();
  write_imports(out, file);
  out.line();
  pb::FileDescriptorProto proto;
  file.CopyTo(&proto);
  out.line("_FILE = _message.add_file(");
  out.indent();
  write_bytes(out, proto.SerializeAsString());
  out.dedent();
  out.line(")");
  for (int i = 0; i < file.enum_type_count(); ++i) {
    out.line();
    out.line();
    write_enum(out, *file.enum_type(i));
  }
  for (int i = 0; i < file.message_type_count(); ++i) {
    out.line();
    out.line();
    write_message(out, *file.message_type(i));
  }
  return out.text();
}

}  // namespace vu
