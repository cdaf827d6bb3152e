// What protoc-gen-vu refuses.
#pragma once

#include <google/protobuf/descriptor.h>

#include <string>

namespace vu {

// The first thing that is wrong with the options or names in a file, naming message and
// field (protoc names the file); empty if all is well.
std::string find_mistake(const google::protobuf::FileDescriptor& file);

}  // namespace vu
