// Descriptors as a wrapper module registers them: refused cleanly, or working. Files are made
// of the input's choices, or are its bytes; their messages are played with and stored.
//
// What is accepted is kept for the life of the process: long runs are many short ones.
#include <google/protobuf/descriptor.pb.h>
#include <google/protobuf/unknown_field_set.h>

#include <map>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "input.h"
#include "interpreter.h"
#include "message_bytes.h"
#include "message_play.h"
#include "vu_options.h"
#include "vu_platform.h"

namespace vu::fuzz {

namespace {

namespace pb = google::protobuf;

constexpr std::size_t kMostClasses = 4;

struct Known {
  PyObject* add_file;
  PyObject* base;
  PyObject* meta;
};

Known& known() {
  static auto* const all = [] {
    auto* const made = new Known();
    made->add_file = import_object("vu_message", "add_file").release();
    made->base = import_object("vu_message", "Message").release();
    made->meta = import_object("vu_message", "MessageType").release();
    import_object("vu_test_tree_vu", "Node");  // files that others import
    return made;
  }();
  return *all;
}

// ---- Files of choices ---------------------------------------------------------------------

void make_options(Input& in, pb::FieldDescriptorProto& field) {
  const std::size_t chosen = in.byte();
  pb::FieldOptions& options = *field.mutable_options();
  pb::UnknownFieldSet& unknown = *options.mutable_unknown_fields();
  if ((chosen & 1) != 0) unknown.AddVarint(kKeyOption, in.pick(4));
  if ((chosen & 2) != 0) unknown.AddVarint(kCounterOption, in.pick(2));
  if ((chosen & 4) != 0) options.set_packed(in.flag());
  if ((chosen & 8) != 0) field.set_proto3_optional(true);
  if ((chosen & 16) != 0) options.set_lazy(true);
  if ((chosen & 32) != 0) unknown.AddLengthDelimited(kKeyOption, "x");
  if ((chosen & 64) != 0) field.set_json_name("other");
  if ((chosen & 128) != 0) options.set_weak(true);
}

void make_map(Input& in, pb::DescriptorProto& message, pb::FieldDescriptorProto& field) {
  pb::DescriptorProto& entry = *message.add_nested_type();
  entry.set_name("M" + std::to_string(message.nested_type_size()) + "Entry");
  field.set_name("m" + std::to_string(message.nested_type_size()));
  entry.mutable_options()->set_map_entry(true);
  for (int number = 1; number <= 2; ++number) {
    pb::FieldDescriptorProto& part = *entry.add_field();
    part.set_name(number == 1 ? "key" : "value");
    part.set_number(number);
    part.set_label(pb::FieldDescriptorProto::LABEL_OPTIONAL);
    const auto type = static_cast<pb::FieldDescriptorProto::Type>(in.pick(18) + 1);
    part.set_type(type);
    if (type == pb::FieldDescriptorProto::TYPE_MESSAGE) part.set_type_name("A");
    if (type == pb::FieldDescriptorProto::TYPE_ENUM) part.set_type_name("E");
  }
  field.set_label(pb::FieldDescriptorProto::LABEL_REPEATED);
  field.set_type(pb::FieldDescriptorProto::TYPE_MESSAGE);
  field.set_type_name(entry.name());
}

void make_field(Input& in, pb::DescriptorProto& message, pb::FieldDescriptorProto& field) {
  static const char* const kNames[] = {
      "a",          "b",       "c",    "d",        "e", "f",       "name", "class",
      "DESCRIPTOR", "get_ptr", "None", "__init__", "A", "no good", "",     "\xff"};
  static const char* const kTypeNames[] = {"A",
                                           "B",
                                           "E",
                                           "A.B",
                                           ".google.protobuf.Timestamp",
                                           "google.protobuf.FileDescriptorProto",
                                           ".vu_test.tree.Node",
                                           "Missing"};
  static const char* const kDefaults[] = {
      "", "0", "-1", "7", "true", "inf", "nan", "ONE", "1e999", "\\377\\", "9223372036854775808"};
  constexpr std::int32_t kNumbers[] = {1,  2,  3,     4,         5,         6, 15,
                                       16, 17, 19000, 536870911, 536870912, 0, -1};
  const std::size_t shape = in.byte();
  field.set_name(in.pick(kNames));
  field.set_number(in.pick(kNumbers));
  field.set_label(static_cast<pb::FieldDescriptorProto::Label>(shape % 8 == 7   ? 2
                                                               : shape % 4 == 3 ? 3
                                                                                : 1));
  if (shape / 8 % 8 == 7) return make_map(in, message, field);
  const auto type = static_cast<pb::FieldDescriptorProto::Type>(in.pick(18) + 1);
  field.set_type(type);
  const bool message_like = type == pb::FieldDescriptorProto::TYPE_MESSAGE ||
                            type == pb::FieldDescriptorProto::TYPE_GROUP ||
                            type == pb::FieldDescriptorProto::TYPE_ENUM;
  if (message_like) field.set_type_name(in.pick(kTypeNames));
  if ((shape & 64) != 0) make_options(in, field);
  if ((shape & 128) != 0) {
    if (in.flag()) {
      field.set_default_value(in.pick(kDefaults));
    } else {
      if (message.oneof_decl_size() == 0) message.add_oneof_decl()->set_name("choice");
      field.set_oneof_index(in.pick(8) == 7 ? 1 : 0);
    }
  }
}

void make_enum(Input& in, pb::EnumDescriptorProto& type) {
  static const char* const kValues[] = {"ZERO", "ONE", "TWO", "None", "A"};
  constexpr std::int32_t kNumbers[] = {0, 1, 2, -1, INT32_MAX, INT32_MIN, 0, 1};
  type.set_name("E");
  if (in.flag()) type.mutable_options()->set_allow_alias(true);
  for (std::size_t count = in.pick(4) + 1; count > 0; --count) {
    pb::EnumValueDescriptorProto& value = *type.add_value();
    value.set_name(in.pick(kValues));
    value.set_number(in.pick(kNumbers));
  }
}

void make_message(Input& in, pb::DescriptorProto& message, const char* name, int depth) {
  const std::size_t shape = in.byte();
  message.set_name(name);
  for (std::size_t count = shape % 8; count > 0; --count) {
    make_field(in, message, *message.add_field());
  }
  if ((shape & 8) != 0) make_enum(in, *message.add_enum_type());
  if ((shape & 16) != 0 && depth < 3) make_message(in, *message.add_nested_type(), "B", depth + 1);
  if ((shape & 32) != 0) {
    auto& range = *message.add_extension_range();
    range.set_start(100);
    range.set_end(in.flag() ? 200 : 536870912);
  }
  if ((shape & 0xC0) == 0xC0) message.mutable_options()->set_message_set_wire_format(true);
  if ((shape & 0xC0) == 0x40) make_field(in, message, *message.add_extension());
}

void make_file(Input& in, pb::FileDescriptorProto& file) {
  static const char* const kImports[] = {"vu/options.proto", "google/protobuf/timestamp.proto",
                                         "vu_test_tree.proto", "google/protobuf/descriptor.proto",
                                         "missing.proto"};
  const std::size_t shape = in.byte();
  if ((shape & 1) != 0) file.set_syntax((shape & 2) != 0 && (shape & 4) != 0 ? "proto9" : "proto3");
  for (const char* const import : {kImports[0], kImports[1], kImports[2]}) {
    file.add_dependency(import);
  }
  if ((shape & 8) != 0) file.add_dependency(in.pick(kImports));
  if ((shape & 16) != 0) file.add_public_dependency(static_cast<std::int32_t>(in.pick(5)));
  if ((shape & 32) != 0) make_enum(in, *file.add_enum_type());
  make_message(in, *file.add_message_type(), "A", 0);
  if ((shape & 64) != 0) make_message(in, *file.add_message_type(), "B", 0);
  if ((shape & 128) != 0) {
    pb::FieldDescriptorProto& extension = *file.add_extension();
    extension.set_name("extension");
    extension.set_number(100 + static_cast<std::int32_t>(in.pick(3)));
    extension.set_label(pb::FieldDescriptorProto::LABEL_OPTIONAL);
    extension.set_type(static_cast<pb::FieldDescriptorProto::Type>(in.pick(18) + 1));
    extension.set_extendee(in.flag() ? "A" : "Missing");
  }
}

// ---- What comes of them -------------------------------------------------------------------

py::Owned bytes(const std::string& text) {
  return py::Owned::steal(
      PyBytes_FromStringAndSize(text.data(), static_cast<Py_ssize_t>(text.size())));
}

py::Owned add(const std::string& serialised) {
  PyObject* const file = PyObject_CallOneArg(known().add_file, bytes(serialised).get());
  if (file == nullptr) {
    check(PyErr_ExceptionMatches(PyExc_ValueError) != 0, "another error than ValueError");
  }
  return ended(file);
}

void look_at(PyObject* object, std::initializer_list<const char*> attributes) {
  for (const char* const attribute : attributes) {
    check(succeeded(PyObject_GetAttrString(object, attribute)), attribute);
  }
  check(succeeded(PyObject_Repr(object)), "repr");
}

// The class of a message type, made as a wrapper module makes it or by the runtime.
py::Owned class_of(PyObject* file, const std::string& name, bool by_hand) {
  const py::Owned type = ended(PyObject_CallMethod(file, "message", "s", name.c_str()));
  check(!type.is_null(), "a file does not know its message");
  look_at(type.get(), {"full_name", "name", "file", "fields", "fields_by_name", "key_fields",
                       "counter", "oneofs"});
  const py::Owned fields = ended(PyObject_GetAttrString(type.get(), "fields"));
  for (Py_ssize_t i = 0; i < PyTuple_GET_SIZE(fields.get()); ++i) {
    look_at(PyTuple_GET_ITEM(fields.get(), i), {"name", "full_name", "number", "type", "repeated",
                                                "key", "counter", "has_presence", "message_type"});
  }
  if (!by_hand) return ended(PyObject_GetAttrString(type.get(), "message_class"));
  return ended(PyObject_CallFunction(known().meta, "s(O){s:(),s:O}", "Made", known().base,
                                     "__slots__", "DESCRIPTOR", type.get()));
}

void add_names(const pb::DescriptorProto& message, const std::string& prefix,
               std::vector<std::string>& names) {
  if (message.options().map_entry()) return;
  const std::string name = prefix + message.name();
  names.push_back(name);
  for (const pb::DescriptorProto& nested : message.nested_type()) {
    add_names(nested, name + ".", names);
  }
}

// A message is read back as it was stored, or its type refused.
void store(PyObject* cls, std::string_view wire) {
  const py::Owned data = bytes(std::string(wire));
  py::Owned message = ended(PyObject_CallMethod(cls, "FromString", "O", data.get()));
  if (message.is_null()) message = ended(PyObject_CallNoArgs(cls));
  check(!message.is_null(), "a class makes no message");
  const py::Owned number = ended(PyObject_CallMethod(message.get(), "get_ptr", nullptr));
  check(!number.is_null(), "get_ptr");
  const std::intptr_t address = PyLong_AsSsize_t(number.get());
  const std::string wanted = bytes_of(*reinterpret_cast<const pb::Message*>(address));
  char error[100] = "";
  vu_mom_handle* const handle =
      vu_platform_open("embedded:fuzz", nullptr, nullptr, nullptr, error, sizeof error);
  check(handle != nullptr, "a store cannot be opened");
  std::string found;
  const vu_mom_reply_cb keep = [](void*, const vu_mom_reply* reply, void* privdata) {
    check(vu_platform_details_of(reply)->status == VU_MOM_OK && reply->data != nullptr, "get");
    *static_cast<std::string*>(privdata) = bytes_of(*static_cast<const pb::Message*>(reply->data));
  };
  const std::int32_t status = vu_mom_set_ext(handle, 0, nullptr, address, nullptr, nullptr);
  if (status == VU_MOM_OK) {
    check(vu_mom_get(handle, 0, address, keep, &found) == VU_MOM_OK, "get was refused");
    while (vu_platform_deliver(handle, 100) != 0) {
    }
    check(found == wanted, "a message is read in another way than it was stored");
  } else {
    check(status == VU_MOM_BAD_INPUT, "status");
  }
  vu_platform_close(handle);
  vu_platform_free(handle);
}

// A file that was added, with what was made of it. Most inputs differ in what they do with a file
// that an earlier one has brought.
struct File {
  PyObject* added = nullptr;  // null: it was refused
  std::vector<std::string> names;
  std::map<std::pair<std::size_t, bool>, PyObject*> classes;  // by the name's place, and by hand
};

// Adds a file twice, under names of its own: what earlier inputs have added is still there.
File add_twice(pb::FileDescriptorProto& file) {
  static int number = 0;
  const std::string package = "p" + std::to_string(++number);
  file.set_name(package + ".proto");
  file.set_package(package);
  const std::string serialised = file.SerializePartialAsString();
  File made;
  made.added = add(serialised).release();
  if (made.added == nullptr) {
    check(add(serialised).is_null(), "a file is refused once");
    return made;
  }
  look_at(made.added, {"name", "package"});
  check(!add(serialised).is_null(), "a file is accepted once");
  for (const pb::DescriptorProto& message : file.message_type()) {
    add_names(message, package + ".", made.names);
  }
  if (made.names.size() > kMostClasses) made.names.resize(kMostClasses);
  return made;
}

File& file_of(pb::FileDescriptorProto& file) {
  static auto* const files = new std::unordered_map<std::string, File>();
  file.clear_name();
  file.clear_package();
  const auto [place, is_new] = files->try_emplace(file.SerializePartialAsString());
  if (is_new) place->second = add_twice(file);
  return place->second;
}

void run(Input& in) {
  pb::FileDescriptorProto file;
  if (in.pick(8) == 7) {
    const std::string raw(in.rest());
    if (!file.ParsePartialFromString(raw)) {
      check(add(raw).is_null(), "bytes were accepted that are no file");
      return;
    }
  } else {
    make_file(in, file);
  }
  File& brought = file_of(file);
  if (brought.added == nullptr) return;
  std::vector<PyObject*> classes;
  for (std::size_t i = 0; i < brought.names.size(); ++i) {
    const bool by_hand = in.flag();
    PyObject*& cls = brought.classes[{i, by_hand}];
    if (cls == nullptr) cls = class_of(brought.added, brought.names[i], by_hand).release();
    check(cls != nullptr, "a message type has no class");
    classes.push_back(cls);
  }
  if (classes.empty()) return;
  store(in.pick_of(classes), in.bytes(in.pick(16)));
  MessagePlay(in, classes).all();
}

}  // namespace

}  // namespace vu::fuzz

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  vu::fuzz::start_interpreter();
  vu::fuzz::known();
  // What is wrong with a file is told by an exception, and not in the log as well.
  google::protobuf::SetLogHandler(nullptr);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  vu::fuzz::Input input(data, size);
  vu::fuzz::run(input);
  return 0;
}
