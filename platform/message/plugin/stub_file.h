// The type stub that is made from a .proto file.
#pragma once

#include <google/protobuf/descriptor.h>

#include <string>

namespace vu {

// The text of telemetry_vu.pyi.
std::string stub_text(const google::protobuf::FileDescriptor& file);

}  // namespace vu
