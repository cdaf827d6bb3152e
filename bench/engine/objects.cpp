#include "objects.h"

#include <google/protobuf/descriptor.pb.h>
#include <google/protobuf/dynamic_message.h>

#include <cstdio>

#include "identity.h"
#include "session.h"
#include "vu_options.h"

namespace vu::bench {

namespace pb = google::protobuf;

const std::vector<std::string>& names(std::size_t count) {
  static auto& all = *new std::vector<std::string>();
  for (std::size_t i = all.size(); i < count; ++i) {
    char name[17];
    std::snprintf(name, sizeof(name), "%016llx",
                  static_cast<unsigned long long>(i) * 0x9E3779B97F4A7C15ull);
    all.emplace_back(name);
  }
  return all;
}

std::string bytes_of(std::size_t number) {
  std::string bytes = {0x12, kValueSize - 2};  // the record of field 2
  bytes += std::to_string(number);
  bytes.resize(kValueSize, '.');
  return bytes;
}

namespace {

const pb::Message& prototype() {
  static const pb::Message* const made = [] {
    pb::FileDescriptorProto file;
    file.set_name("object.proto");
    file.set_package("bench");
    file.set_syntax("proto3");
    auto& object = *file.add_message_type();
    object.set_name("Object");
    const auto add = [&](const char* name, pb::FieldDescriptorProto::Type type) -> auto& {
      auto& field = *object.add_field();
      field.set_name(name);
      field.set_number(object.field_size());
      field.set_type(type);
      field.set_label(pb::FieldDescriptorProto::LABEL_OPTIONAL);
      return field;
    };
    auto& options = *add("key", pb::FieldDescriptorProto::TYPE_STRING).mutable_options();
    pb::FieldOptions::GetReflection()->MutableUnknownFields(&options)->AddVarint(kKeyOption, 1);
    add("bytes", pb::FieldDescriptorProto::TYPE_BYTES);
    auto* const pool = new pb::DescriptorPool(pb::DescriptorPool::generated_pool());
    auto* const factory = new pb::DynamicMessageFactory(pool);
    return factory->GetPrototype(pool->BuildFile(file)->message_type(0));
  }();
  return *made;
}

const pb::FieldDescriptor* field(int number) {
  return prototype().GetDescriptor()->FindFieldByNumber(number);
}

}  // namespace

Message::Message() : native_(prototype().New()) { vu_platform_message_add(address()); }
Message::~Message() { vu_platform_message_remove(address()); }

void Message::set_key(const std::string& key) {
  native_->GetReflection()->SetString(native_.get(), field(1), key);
}
void Message::set_bytes(const std::string& bytes) {
  native_->GetReflection()->SetString(native_.get(), field(2), bytes);
}
vu_mom_message Message::address() const { return reinterpret_cast<vu_mom_message>(native_.get()); }

std::string identity_of(const std::string& key) {
  Message message;
  message.set_key(key);
  return store::identity_of(message.native(), *store::type_of(message.native()));
}

Engine::Engine(const std::string& name)
    : handle_(
          vu_platform_open(("embedded:" + name).c_str(), nullptr, nullptr, nullptr, nullptr, 0)),
      type_(*store::type_of(message_.native())) {}

Engine::~Engine() { vu_platform_free(handle_); }

store::Request Engine::request(store::Command command) const {
  store::Request request(command);
  request.type = &type_;
  return request;
}

void Engine::fill(std::size_t count) {
  store::Request set = request(store::Command::kSet);
  for (std::size_t i = 0; i < count; ++i) {
    set.identity = identity_of(names(count)[i]);
    set.value = bytes_of(i);
    submit(set);
  }
}

}  // namespace vu::bench
