// What the store knows of a message type: its name, its key fields, its counter.
#pragma once

#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "plain_fields.h"
#include "spare_messages.h"
#include "wire.h"

namespace vu::store {

struct TypeInfo {
  std::string name;      // full name; types of one name are one type, whatever their pool
  std::uint32_t id = 0;  // the same for types of one name, for the life of the process
  std::vector<const google::protobuf::FieldDescriptor*> keys;  // by position
  std::string key_letters;  // with what the component of each begins: see identity.h
  // Where fields lie in memory; never null.
  std::unique_ptr<const plain::Fields> plain_fields;
  // The key fields, by position; empty unless all of them are plain.
  std::vector<const plain::Slot*> key_slots;
  std::unique_ptr<SpareMessages> spare;  // never null
  bool counts = false;                   // has a counter field
  Counter counter;
  const google::protobuf::Descriptor* descriptor = nullptr;
  const google::protobuf::Reflection* reflection = nullptr;
  const google::protobuf::Message* prototype = nullptr;

  std::uint32_t levels() const { return static_cast<std::uint32_t>(keys.size()); }
};

// The type of `message`; null where its options contradict each other: two key fields
// at one position, a key field that cannot be one, a second counter. Kept for the life
// of the process, as the message's descriptor and its factory must be.
const TypeInfo* type_of(const google::protobuf::Message& message);

}  // namespace vu::store
