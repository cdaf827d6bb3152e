#include "wire.h"

#include <cstring>
#include <limits>

namespace vu::store {

namespace {

constexpr unsigned kDeepestGroup = 100;

void append_varint(std::string& out, std::uint64_t value) {
  while (value >= 0x80) {
    out.push_back(static_cast<char>(value | 0x80));
    value >>= 7;
  }
  out.push_back(static_cast<char>(value));
}

void append_little_endian(std::string& out, std::uint64_t value, unsigned bytes) {
  for (unsigned i = 0; i < bytes; ++i) out.push_back(static_cast<char>(value >> (8 * i)));
}

std::uint64_t read_little_endian(std::string_view bytes) {
  std::uint64_t value = 0;
  for (std::size_t i = bytes.size(); i-- > 0;) {
    value = value << 8 | static_cast<unsigned char>(bytes[i]);
  }
  return value;
}

std::uint64_t read_whole_varint(std::string_view bytes) {
  std::uint64_t value = 0;
  unsigned shift = 0;
  for (const char byte : bytes) {
    if (shift < 64) value |= (static_cast<std::uint64_t>(byte) & 0x7f) << shift;
    shift += 7;
  }
  return value;
}

// The integer in a counter's record, as 64 bits of two's complement.
std::uint64_t decode(const WireRecord& record, const Counter& counter) {
  std::uint64_t bits = 0;
  switch (counter.form) {
    case IntegerForm::kPlain:
      bits = read_whole_varint(record.content);
      break;
    case IntegerForm::kZigzag:
      bits = read_whole_varint(record.content);
      return bits >> 1 ^ (~(bits & 1) + 1);
    case IntegerForm::kFixed32:
    case IntegerForm::kFixed64:
      bits = read_little_endian(record.content);
      break;
  }
  if (counter.is_32_bit) {
    const auto low = static_cast<std::uint32_t>(bits);
    if (!counter.is_signed) return low;
    return static_cast<std::uint64_t>(std::int64_t{static_cast<std::int32_t>(low)});
  }
  return bits;
}

std::string encode(std::int64_t value, const Counter& counter) {
  std::string record;
  const auto bits = static_cast<std::uint64_t>(value);
  const auto tag = [&](WireType type) {
    append_varint(record, std::uint64_t{counter.number} << 3 | static_cast<std::uint64_t>(type));
  };
  switch (counter.form) {
    case IntegerForm::kPlain:
      tag(WireType::kVarint);
      append_varint(record, bits);
      break;
    case IntegerForm::kZigzag:
      tag(WireType::kVarint);
      append_varint(record, bits << 1 ^ (value < 0 ? ~std::uint64_t{0} : 0));
      break;
    case IntegerForm::kFixed32:
      tag(WireType::kFixed32);
      append_little_endian(record, bits, 4);
      break;
    case IntegerForm::kFixed64:
      tag(WireType::kFixed64);
      append_little_endian(record, bits, 8);
      break;
  }
  return record;
}

WireType wire_type_of(const Counter& counter) {
  if (counter.form == IntegerForm::kFixed32) return WireType::kFixed32;
  if (counter.form == IntegerForm::kFixed64) return WireType::kFixed64;
  return WireType::kVarint;
}

std::int64_t largest(const Counter& counter) {
  if (!counter.is_32_bit) return std::numeric_limits<std::int64_t>::max();
  if (counter.is_signed) return std::numeric_limits<std::int32_t>::max();
  return std::numeric_limits<std::uint32_t>::max();
}

}  // namespace

bool WireReader::read_varint(std::uint64_t& value) {
  value = 0;
  for (std::size_t i = 0; i < rest_.size() && i < 10; ++i) {
    const auto byte = static_cast<unsigned char>(rest_[i]);
    value |= (std::uint64_t{byte} & 0x7f) << (7 * i);
    if (byte < 0x80) {
      rest_.remove_prefix(i + 1);
      return true;
    }
  }
  return false;
}

bool WireReader::skip_content(WireType type, std::uint32_t number, unsigned depth) {
  std::uint64_t value = 0;
  switch (type) {
    case WireType::kVarint:
      return read_varint(value);
    case WireType::kFixed64:
    case WireType::kFixed32: {
      const std::size_t size = type == WireType::kFixed64 ? 8 : 4;
      if (rest_.size() < size) return false;
      rest_.remove_prefix(size);
      return true;
    }
    case WireType::kSized:
      if (!read_varint(value) || value > rest_.size()) return false;
      rest_.remove_prefix(static_cast<std::size_t>(value));
      return true;
    case WireType::kGroupStart:
      if (depth == kDeepestGroup) return false;
      while (read_varint(value)) {
        const auto inner = static_cast<WireType>(value & 7);
        const auto inner_number = static_cast<std::uint32_t>(value >> 3);
        if (inner == WireType::kGroupEnd) return inner_number == number;
        if (!skip_content(inner, inner_number, depth + 1)) return false;
      }
      return false;
    case WireType::kGroupEnd:
      return false;
  }
  return false;
}

bool WireReader::next(WireRecord& record) {
  const std::string_view begin = rest_;
  std::uint64_t tag = 0;
  if (!read_varint(tag) || tag >> 3 == 0 || tag >> 32 != 0) return false;
  record.number = static_cast<std::uint32_t>(tag >> 3);
  record.type = static_cast<WireType>(tag & 7);
  std::string_view content = rest_;
  if (!skip_content(record.type, record.number, 0)) return false;
  record.bytes = begin.substr(0, begin.size() - rest_.size());
  content = content.substr(0, content.size() - rest_.size());
  if (record.type == WireType::kSized) {
    WireReader size(content);
    std::uint64_t ignored = 0;
    size.read_varint(ignored);
    content = size.rest_;
  }
  record.content = content;
  return true;
}

std::string records_of(std::string_view message, std::uint32_t number) {
  std::string records;
  WireReader reader(message);
  for (WireRecord record; reader.next(record);) {
    if (record.number == number) records.append(record.bytes);
  }
  return records;
}

bool carries(std::string_view message, std::uint32_t number) {
  WireReader reader(message);
  for (WireRecord record; reader.next(record);) {
    if (record.number == number) return true;
  }
  return false;
}

std::string without(std::string_view message, std::uint32_t number) {
  std::string rest;
  rest.reserve(message.size());
  WireReader reader(message);
  for (WireRecord record; reader.next(record);) {
    if (record.number != number) rest.append(record.bytes);
  }
  return rest;
}

bool increment(std::string& message, const Counter& counter, std::int64_t& value) {
  auto bits = static_cast<std::uint64_t>(counter.initial);
  WireReader reader(message);
  for (WireRecord record; reader.next(record);) {
    // The last one counts, as when a message is parsed.
    if (record.number == counter.number && record.type == wire_type_of(counter)) {
      bits = decode(record, counter);
    }
  }
  const auto old_value = static_cast<std::int64_t>(bits);
  if (!counter.is_signed && old_value < 0) return false;  // beyond 63 bits
  if (old_value == largest(counter)) return false;
  const std::string counted = encode(old_value + 1, counter);

  // In the order of field numbers, as a message is serialised.
  std::string changed;
  changed.reserve(message.size() + counted.size());
  bool written = false;
  WireReader again(message);
  for (WireRecord record; again.next(record);) {
    if (record.number == counter.number && record.type == wire_type_of(counter)) continue;
    if (!written && record.number > counter.number) {
      changed.append(counted);
      written = true;
    }
    changed.append(record.bytes);
  }
  if (!written) changed.append(counted);
  message.swap(changed);
  value = old_value + 1;
  return true;
}

}  // namespace vu::store
