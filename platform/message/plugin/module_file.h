// The Python module that is made from a .proto file.
#pragma once

#include <google/protobuf/descriptor.h>

#include <string>

namespace vu {

// The text of telemetry_vu.py. Runs on CPython 3.4 and later.
std::string module_text(const google::protobuf::FileDescriptor& file);

}  // namespace vu
