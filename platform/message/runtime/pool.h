// The descriptors of every generated file that was imported, and the native messages
// made from them.
#pragma once

#include <google/protobuf/descriptor.h>
#include <google/protobuf/dynamic_message.h>
#include <google/protobuf/message.h>

#include <string>
#include <string_view>
#include <unordered_map>

namespace vu {

// One per process and never destroyed: wrappers and the store may use its messages until
// the very end. Beneath it lie the descriptors compiled into libprotobuf, so files may
// import google/protobuf/*.proto.
class Pool {
 public:
  static Pool& instance();

  // Adds a serialised FileDescriptorProto whose imports were added before. Adding the same
  // file again answers the one that is there. ValueError: not a descriptor, a descriptor
  // with errors, or another file of the same name.
  const google::protobuf::FileDescriptor& add(std::string_view serialized);

  // The message type of that full name, or null.
  const google::protobuf::Descriptor* find_message(const std::string& full_name) const {
    return pool_.FindMessageTypeByName(full_name);
  }

  const google::protobuf::DescriptorPool& descriptors() const { return pool_; }

  // The empty message of a type; lives as long as the pool.
  const google::protobuf::Message& prototype(const google::protobuf::Descriptor& type) {
    return *factory_.GetPrototype(&type);
  }

 private:
  Pool();

  google::protobuf::DescriptorPool pool_;
  google::protobuf::DynamicMessageFactory factory_;
  std::unordered_map<std::string, std::string> added_;  // file name to serialised file
};

}  // namespace vu
