#include "pool.h"

#include <google/protobuf/descriptor.pb.h>

#include "python/error.h"
#include "vu_options.h"

namespace vu {

namespace pb = google::protobuf;

namespace {

// Gathers what is wrong with a file, one line per error.
class Errors : public pb::DescriptorPool::ErrorCollector {
 public:
  void AddError(const std::string& /*file*/, const std::string& element,
                const pb::Message* /*descriptor*/, ErrorLocation /*location*/,
                const std::string& message) override {
    if (!text_.empty()) text_ += "; ";
    text_ += element + ": " + message;
  }

  const std::string& text() const { return text_; }

 private:
  std::string text_;
};

void add_option(pb::FileDescriptorProto& file, const char* name, int number,
                pb::FieldDescriptorProto::Type type) {
  pb::FieldDescriptorProto& option = *file.add_extension();
  option.set_name(name);
  option.set_number(number);
  option.set_label(pb::FieldDescriptorProto::LABEL_OPTIONAL);
  option.set_type(type);
  option.set_extendee(".google.protobuf.FieldOptions");
  option.set_json_name(name);
}

// Weak fields and imports are for what is linked into C++ programs; dynamic messages end the
// process over them. Here they are fields and imports like others.
void strengthen(pb::DescriptorProto& message) {
  for (pb::FieldDescriptorProto& field : *message.mutable_field()) {
    if (field.options().weak()) field.mutable_options()->clear_weak();
  }
  for (pb::DescriptorProto& nested : *message.mutable_nested_type()) strengthen(nested);
}

void strengthen(pb::FileDescriptorProto& file) {
  file.clear_weak_dependency();
  for (pb::DescriptorProto& message : *file.mutable_message_type()) strengthen(message);
}

// vu/options.proto, which every file with key fields imports.
pb::FileDescriptorProto options_file() {
  pb::FileDescriptorProto file;
  file.set_name("vu/options.proto");
  file.set_package("vu");
  file.add_dependency("google/protobuf/descriptor.proto");
  add_option(file, "key", kKeyOption, pb::FieldDescriptorProto::TYPE_UINT32);
  add_option(file, "counter", kCounterOption, pb::FieldDescriptorProto::TYPE_BOOL);
  return file;
}

}  // namespace

Pool& Pool::instance() {
  static Pool* const pool = new Pool();
  return *pool;
}

Pool::Pool() : pool_(pb::DescriptorPool::generated_pool()), factory_(&pool_) {
  add(options_file().SerializeAsString());
}

const pb::FileDescriptor& Pool::add(std::string_view serialized) {
  pb::FileDescriptorProto file;
  if (!file.ParseFromArray(serialized.data(), static_cast<int>(serialized.size()))) {
    py::raise(PyExc_ValueError, "not a serialised FileDescriptorProto");
  }
  const auto known = added_.find(file.name());
  if (known != added_.end()) {
    if (known->second != serialized) {
      py::raise(PyExc_ValueError, "%s: another file of this name was loaded before",
                file.name().c_str());
    }
    return *pool_.FindFileByName(file.name());
  }
  // What libprotobuf brings is not replaced; its well-known types do not change.
  if (const pb::FileDescriptor* bundled =
          pb::DescriptorPool::generated_pool()->FindFileByName(file.name())) {
    return *bundled;
  }
  strengthen(file);
  Errors errors;
  const pb::FileDescriptor* added = pool_.BuildFileCollectingErrors(file, &errors);
  if (added == nullptr) {
    py::raise(PyExc_ValueError, "%s: %s", file.name().c_str(), errors.text().c_str());
  }
  added_.emplace(file.name(), serialized);
  return *added;
}

}  // namespace vu
