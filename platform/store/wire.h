// Serialised messages, read record by record without knowing their type.
//
// A hash keeps the records of each field apart, and `incr` changes one field of a
// stored message; neither needs the message itself.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace vu::store {

// The kinds of record that the wire format has.
enum class WireType : std::uint32_t {
  kVarint = 0,
  kFixed64 = 1,
  kSized = 2,
  kGroupStart = 3,
  kGroupEnd = 4,
  kFixed32 = 5
};

struct WireRecord {
  std::uint32_t number = 0;
  WireType type = WireType::kVarint;
  std::string_view bytes;    // the record, its tag included
  std::string_view content;  // what follows the tag; without the size where it is sized
};

class WireReader {
 public:
  explicit WireReader(std::string_view bytes) : rest_(bytes) {}

  // The next record; false at the end, and at the first malformed byte.
  bool next(WireRecord& record);

 private:
  bool read_varint(std::uint64_t& value);
  bool skip_content(WireType type, std::uint32_t number, unsigned depth);

  std::string_view rest_;
};

// The records of field `number`, one after the other; "" where there are none.
std::string records_of(std::string_view message, std::uint32_t number);

// Whether `message` carries field `number`.
bool carries(std::string_view message, std::uint32_t number);

// How an integer field is written.
enum class IntegerForm { kPlain, kZigzag, kFixed32, kFixed64 };

// The field that `incr` counts in.
struct Counter {
  std::uint32_t number = 0;
  IntegerForm form = IntegerForm::kPlain;
  bool is_signed = true;
  bool is_32_bit = false;
  std::int64_t initial = 0;  // what a message that does not carry the field counts as
};

// Adds one to the counter of `message` and says its new value. False, with nothing
// changed, where the field's type, or the 63 bits of a reply, cannot hold it.
bool increment(std::string& message, const Counter& counter, std::int64_t& value);

// `message` without field `number`.
std::string without(std::string_view message, std::uint32_t number);

}  // namespace vu::store
