#include "plain_codec.h"

#include <google/protobuf/stubs/common.h>
#include <google/protobuf/unknown_field_set.h>

#include <bit>

namespace vu::plain {

namespace {

using google::protobuf::FieldDescriptor;

static_assert(std::endian::native == std::endian::little, "fixed numbers are copied as they are");

constexpr unsigned kLongestVarint = 10;
constexpr unsigned kLongestSize = 5;  // a tag too

char* put_varint(char* to, std::uint64_t value) {
  while (value >= 0x80) {
    *to++ = static_cast<char>(value | 0x80);
    value >>= 7;
  }
  *to++ = static_cast<char>(value);
  return to;
}

std::uint64_t extended(std::int32_t value) {
  return static_cast<std::uint64_t>(std::int64_t{value});
}

std::uint64_t zigzag(std::int64_t value) {
  return static_cast<std::uint64_t>(value) << 1 ^ (value < 0 ? ~std::uint64_t{0} : 0);
}

std::int64_t unzigzag(std::uint64_t value) {
  return static_cast<std::int64_t>(value >> 1 ^ (~(value & 1) + 1));
}

// A number that is written as a varint, as it is written.
std::uint64_t varint_of(const Message& message, const Slot& slot) {
  switch (slot.type) {
    case FieldDescriptor::TYPE_BOOL:
      return read<std::uint8_t>(message, slot);
    case FieldDescriptor::TYPE_INT32:
    case FieldDescriptor::TYPE_ENUM:
      return extended(read<std::int32_t>(message, slot));
    case FieldDescriptor::TYPE_UINT32:
      return read<std::uint32_t>(message, slot);
    case FieldDescriptor::TYPE_SINT32:
      return static_cast<std::uint32_t>(zigzag(read<std::int32_t>(message, slot)));
    case FieldDescriptor::TYPE_SINT64:
      return zigzag(read<std::int64_t>(message, slot));
    default:
      return read<std::uint64_t>(message, slot);
  }
}

bool is_ascii(std::string_view text) {
  constexpr std::uint64_t kHighBits = 0x8080808080808080;
  std::uint64_t seen = 0;
  std::size_t i = 0;
  for (; i + sizeof(seen) <= text.size(); i += sizeof(seen)) {
    std::uint64_t word = 0;
    std::memcpy(&word, text.data() + i, sizeof(word));
    seen |= word;
  }
  for (; i < text.size(); ++i) seen |= static_cast<unsigned char>(text[i]);
  return (seen & kHighBits) == 0;
}

bool is_utf8(std::string_view text) {
  return is_ascii(text) || google::protobuf::internal::IsStructurallyValidUTF8(
                               text.data(), static_cast<int>(text.size()));
}

// Takes values from the front of some bytes; false where there are too few.
class Reader {
 public:
  explicit Reader(std::string_view bytes) : next_(bytes.data()), end_(next_ + bytes.size()) {}

  bool at_end() const { return next_ == end_; }

  bool varint(std::uint64_t& value, unsigned most = kLongestVarint) {
    value = 0;
    for (unsigned shift = 0; shift < 7 * most && next_ != end_; shift += 7) {
      const auto byte = static_cast<unsigned char>(*next_++);
      value |= (std::uint64_t{byte} & 0x7f) << shift;
      if (byte < 0x80) return true;
    }
    return false;
  }

  template <typename T>
  bool fixed(T& value) {
    std::string_view bytes;
    if (!take(sizeof(value), bytes)) return false;
    std::memcpy(&value, bytes.data(), sizeof(value));
    return true;
  }

  bool sized(std::string_view& bytes) {
    std::uint64_t size = 0;
    return varint(size, kLongestSize) && take(size, bytes);
  }

 private:
  bool take(std::uint64_t size, std::string_view& bytes) {
    if (size > static_cast<std::uint64_t>(end_ - next_)) return false;
    bytes = std::string_view(next_, static_cast<std::size_t>(size));
    next_ += bytes.size();
    return true;
  }

  const char* next_;
  const char* end_;
};

void set_varint(Message& message, const Slot& slot, std::uint64_t value) {
  switch (slot.type) {
    case FieldDescriptor::TYPE_BOOL:
      return write<std::uint8_t>(message, slot, value != 0 ? 1 : 0);
    case FieldDescriptor::TYPE_INT32:
    case FieldDescriptor::TYPE_UINT32:
    case FieldDescriptor::TYPE_ENUM:
      return write(message, slot, static_cast<std::uint32_t>(value));
    case FieldDescriptor::TYPE_SINT32:
      return write(message, slot,
                   static_cast<std::int32_t>(unzigzag(static_cast<std::uint32_t>(value))));
    case FieldDescriptor::TYPE_SINT64:
      return write(message, slot, unzigzag(value));
    default:
      return write(message, slot, value);
  }
}

bool parse_field(Message& message, const Slot& slot, Reader& reader) {
  switch (slot.type) {
    case FieldDescriptor::TYPE_STRING:
    case FieldDescriptor::TYPE_BYTES: {
      std::string_view text;
      if (!reader.sized(text) || (slot.utf8 && !is_utf8(text))) return false;
      write_text(message, slot, text.data(), text.size());
      return true;
    }
    case FieldDescriptor::TYPE_DOUBLE:
    case FieldDescriptor::TYPE_FIXED64:
    case FieldDescriptor::TYPE_SFIXED64: {
      std::uint64_t value = 0;
      if (!reader.fixed(value)) return false;
      write(message, slot, value);
      return true;
    }
    case FieldDescriptor::TYPE_FLOAT:
    case FieldDescriptor::TYPE_FIXED32:
    case FieldDescriptor::TYPE_SFIXED32: {
      std::uint32_t value = 0;
      if (!reader.fixed(value)) return false;
      write(message, slot, value);
      return true;
    }
    default: {
      std::uint64_t value = 0;
      if (!reader.varint(value)) return false;
      // A number that a closed enum does not have becomes an unknown field.
      if (slot.closed &&
          slot.field->enum_type()->FindValueByNumber(static_cast<int>(value)) == nullptr) {
        return false;
      }
      set_varint(message, slot, value);
      return true;
    }
  }
}

}  // namespace

bool is_known(const Message& message, const Fields& fields) {
  return fields.is_plain() && message.GetReflection()->GetUnknownFields(message).empty();
}

bool clear(Message& message, const Fields& fields, std::size_t most_room) {
  if (!is_known(message, fields)) return false;
  std::size_t room = 0;
  for (const Slot& slot : fields.slots()) {
    if (slot.is_text()) room += read_text(message, slot).capacity();
  }
  if (room > most_room) return false;
  for (const Slot& slot : fields.slots()) clear(message, slot);
  return true;
}

void append_record(const Message& message, const Slot& slot, std::string& out) {
  char head[2 * kLongestVarint];
  char* end = put_varint(head, slot.tag);
  const auto append_fixed = [&](auto value) {
    std::memcpy(end, &value, sizeof(value));
    out.append(head, static_cast<std::size_t>(end - head) + sizeof(value));
  };
  switch (slot.type) {
    case FieldDescriptor::TYPE_STRING:
    case FieldDescriptor::TYPE_BYTES: {
      const std::string& text = read_text(message, slot);
      end = put_varint(end, text.size());
      out.append(head, static_cast<std::size_t>(end - head));
      out.append(text);
      return;
    }
    case FieldDescriptor::TYPE_DOUBLE:
    case FieldDescriptor::TYPE_FIXED64:
    case FieldDescriptor::TYPE_SFIXED64:
      return append_fixed(read<std::uint64_t>(message, slot));
    case FieldDescriptor::TYPE_FLOAT:
    case FieldDescriptor::TYPE_FIXED32:
    case FieldDescriptor::TYPE_SFIXED32:
      return append_fixed(read<std::uint32_t>(message, slot));
    default:
      end = put_varint(end, varint_of(message, slot));
      out.append(head, static_cast<std::size_t>(end - head));
  }
}

bool parse(Message& message, const Fields& fields, std::string_view bytes) {
  if (!fields.is_plain()) return false;
  const std::vector<Slot>& slots = fields.slots();
  std::size_t next = 0;  // fields come in the order of their numbers, as a rule
  for (Reader reader(bytes); !reader.at_end();) {
    std::uint64_t tag = 0;
    if (!reader.varint(tag, kLongestSize)) return false;
    std::size_t tried = 0;
    while (tried < slots.size() && slots[next].tag != tag) {
      next = next + 1 == slots.size() ? 0 : next + 1;
      ++tried;
    }
    if (tried == slots.size()) return false;
    if (!parse_field(message, slots[next], reader)) return false;
  }
  return true;
}

}  // namespace vu::plain
