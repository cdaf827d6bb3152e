// Where the fields of a message lie in memory.
//
// libprotobuf's reflection finds that out anew at every access and checks its caller every
// time, which costs more than all that a store or a wrapper does with the value. Whoever
// knows a type for long asks once, and reads and writes memory afterwards.
//
// This holds for messages that are made at run time (DynamicMessage), and for their plain
// fields: numbers, bool, enums, string and bytes that are neither repeated nor members of a
// oneof, and strings without a default of their own. All else is left to reflection. What
// memory looks like is no promise of libprotobuf: each slot is tried out with reflection
// before it is used, and one that does not behave is left out.
#pragma once

#include <google/protobuf/arenastring.h>
#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace vu::plain {

using google::protobuf::Message;

// A plain field.
struct Slot {
  const google::protobuf::FieldDescriptor* field = nullptr;
  google::protobuf::FieldDescriptor::Type type = {};
  std::uint8_t size = 0;  // of a number in memory, in bytes; 0: a text
  bool utf8 = false;      // a string that must be UTF-8 to be parsed
  bool closed = false;    // an enum that has no numbers but those with a name
  std::uint32_t tag = 0;  // as on the wire: the number and how it is written
  std::uint32_t offset = 0;
  std::uint32_t has_offset = 0;    // of the word with the bit for its presence
  std::uint32_t has_mask = 0;      // 0: present where it is not zero or empty
  std::uint64_t default_bits = 0;  // of a number

  bool is_text() const { return size == 0; }  // string or bytes
};

namespace detail {
inline const char* at(const Message& message, std::uint32_t offset) {
  return static_cast<const char*>(static_cast<const void*>(&message)) + offset;
}
inline char* at(Message& message, std::uint32_t offset) {
  return static_cast<char*>(static_cast<void*>(&message)) + offset;
}
}  // namespace detail

// The value of a slot that holds a T: std::int32_t for an enum.
template <typename T>
T read(const Message& message, const Slot& slot) {
  T value;
  std::memcpy(&value, detail::at(message, slot.offset), sizeof(value));
  return value;
}

// Says that the field is present, where that is not to be seen from its value.
inline void mark(Message& message, const Slot& slot) {
  if (slot.has_mask == 0) return;
  std::uint32_t word = 0;
  std::memcpy(&word, detail::at(message, slot.has_offset), sizeof(word));
  word |= slot.has_mask;
  std::memcpy(detail::at(message, slot.has_offset), &word, sizeof(word));
}

template <typename T>
void write(Message& message, const Slot& slot, T value) {
  std::memcpy(detail::at(message, slot.offset), &value, sizeof(value));
  mark(message, slot);
}

// The value of a slot of type string or bytes.
inline const std::string& read_text(const Message& message, const Slot& slot) {
  const void* const text = detail::at(message, slot.offset);
  return static_cast<const google::protobuf::internal::ArenaStringPtr*>(text)->Get();
}

// Throws std::bad_alloc. Requires: the message is on no arena.
inline void write_text(Message& message, const Slot& slot, const char* text, std::size_t size) {
  void* const at = detail::at(message, slot.offset);
  auto& to = *static_cast<google::protobuf::internal::ArenaStringPtr*>(at);
  if (to.IsDefault()) {
    to.Set(std::string(text, size), nullptr);  // no larger than it has to be
  } else {
    to.UnsafeMutablePointer()->assign(text, size);
  }
  mark(message, slot);
}

// The field becomes absent, as by Reflection::ClearField. Requires: the message is on no arena.
void clear(Message& message, const Slot& slot);

// Whether the message carries the field, as Reflection::HasField tells it.
bool has(const Message& message, const Slot& slot);

// Whether the field has its default value.
bool is_default(const Message& message, const Slot& slot);

// A message type. Immutable; `prototype` and its descriptor must outlive it.
class Fields {
 public:
  explicit Fields(const Message& prototype);

  // Null where the field is not plain.
  const Slot* slot(const google::protobuf::FieldDescriptor& field) const;

  // Whether every field is plain, and there are no extensions.
  bool is_plain() const { return is_plain_; }

  // The slots by ascending field number.
  const std::vector<Slot>& slots() const { return slots_; }

 private:
  std::vector<Slot> slots_;
  bool is_plain_ = false;
};

}  // namespace vu::plain
