// Messages as stored bytes, and back.
//
// Stored bytes are the deterministic serialisation of a message without those key
// fields that its identity restores: a million objects do not hold their keys twice.
// Under one identity they are equal exactly when the whole serialisations are.
#pragma once

#include <google/protobuf/message.h>

#include <memory>
#include <string>
#include <string_view>

#include "type_info.h"

namespace vu::store {

// The deterministic serialisation, whole. False for a message of 2 GiB or more.
bool serialise(const google::protobuf::Message& message, const TypeInfo& type, std::string& bytes);

// The stored bytes. False as before.
bool store_bytes(const google::protobuf::Message& message, const TypeInfo& type,
                 std::string& bytes);

// The message that was stored as `bytes` under `identity`; null where `type` cannot
// read them.
std::unique_ptr<google::protobuf::Message> restore(const TypeInfo& type, std::string_view bytes,
                                                   std::string_view identity);

}  // namespace vu::store
