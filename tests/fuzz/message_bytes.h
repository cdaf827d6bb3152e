// The serialisation by which messages are compared: libprotobuf's own, the same for equal messages.
#pragma once

#include <google/protobuf/message.h>

#include <string>

namespace vu::fuzz {

std::string bytes_of(const google::protobuf::Message& message);

}  // namespace vu::fuzz
