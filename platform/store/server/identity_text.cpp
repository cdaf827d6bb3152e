// Identities as people read them in keys.
#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <limits>

#include "../identity.h"
#include "command_text.h"
#include "protocol.h"

namespace vu::store {

namespace {

constexpr char kDigits[] = "0123456789ABCDEF";

constexpr std::array<bool, 256> plain_bytes() {
  std::array<bool, 256> plain = {};
  for (unsigned byte = 0; byte < plain.size(); ++byte) {
    plain[byte] = (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
                  (byte >= '0' && byte <= '9') || byte == '_' || byte == '.' || byte == '-';
  }
  return plain;
}
constexpr std::array<bool, 256> kPlain = plain_bytes();

bool is_plain(char byte) { return kPlain[static_cast<unsigned char>(byte)]; }

void append_escaped(std::string& text, std::string_view bytes) {
  while (!bytes.empty()) {
    const auto end = std::find_if_not(bytes.begin(), bytes.end(), is_plain);
    text.append(bytes.begin(), end);
    bytes.remove_prefix(static_cast<std::size_t>(end - bytes.begin()));
    if (bytes.empty()) return;
    const auto value = static_cast<unsigned char>(bytes.front());
    const char escape[] = {'%', kDigits[value >> 4], kDigits[value & 15]};
    text.append(escape, sizeof(escape));
    bytes.remove_prefix(1);
  }
}

bool read_digit(char digit, unsigned& value) {
  const std::string_view digits(kDigits, 16);
  const std::size_t found = digits.find(digit);
  if (found == std::string_view::npos) return false;
  value = static_cast<unsigned>(found);
  return true;
}

bool append_unescaped(std::string& bytes, std::string_view text) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (is_plain(text[i])) {
      bytes.push_back(text[i]);
      continue;
    }
    unsigned high = 0;
    unsigned low = 0;
    if (text[i] != '%' || text.size() - i < 3) return false;
    if (!read_digit(text[i + 1], high) || !read_digit(text[i + 2], low)) return false;
    bytes.push_back(static_cast<char>(high << 4 | low));
    i += 2;
  }
  return true;
}

template <typename Integer>
bool read_decimal(std::string_view text, Integer& value) {
  const char* const end = text.data() + text.size();
  const auto read = std::from_chars(text.data(), end, value);
  return read.ec == std::errc() && read.ptr == end;
}

std::uint64_t read_integer(std::string_view bytes) {
  std::uint64_t value = 0;
  for (std::size_t i = bytes.size(); i-- > 0;) {
    value = value << 8 | static_cast<unsigned char>(bytes[i]);
  }
  return value;
}

void append_integer(std::string& bytes, std::uint64_t value, unsigned size) {
  for (unsigned i = 0; i < size; ++i) bytes.push_back(static_cast<char>(value >> (8 * i)));
}

// The component that `text` says, for a key field of this letter.
bool append_component(std::string& identity, char letter, std::string_view text) {
  identity.push_back(letter);
  switch (letter) {
    case 'i': {
      std::int64_t value = 0;
      if (!read_decimal(text, value)) return false;
      append_integer(identity, static_cast<std::uint64_t>(value), 8);
      return true;
    }
    case 'u': {
      std::uint64_t value = 0;
      if (!read_decimal(text, value)) return false;
      append_integer(identity, value, 8);
      return true;
    }
    case 'b':
      identity.push_back(text == "1" ? 1 : 0);
      return text == "0" || text == "1";
    default: {
      std::string bytes;
      if (!append_unescaped(bytes, text)) return false;
      if (bytes.size() > std::numeric_limits<std::uint32_t>::max()) return false;
      append_integer(identity, bytes.size(), 4);
      identity.append(bytes);
      return true;
    }
  }
}

}  // namespace

void append_identity_text(std::string& text, std::string_view identity) {
  while (!identity.empty()) {
    const std::string_view component = identity.substr(0, prefix_size(identity, 1));
    switch (component[0]) {
      case 'i':
        append_decimal(text, static_cast<std::int64_t>(read_integer(component.substr(1))));
        break;
      case 'u':
        append_decimal(text, read_integer(component.substr(1)));
        break;
      case 'b':
        text.push_back(component[1] == 0 ? '0' : '1');
        break;
      default:
        append_escaped(text, component.substr(5));
    }
    text.push_back('/');
    identity.remove_prefix(component.size());
  }
}

std::string identity_text(std::string_view identity) {
  std::string text;
  text.reserve(2 * identity.size());
  append_identity_text(text, identity);
  return text;
}

bool identity_from_text(const TypeInfo& type, std::string_view text, std::string& identity) {
  identity.clear();
  for (const auto* field : type.keys) {
    const std::size_t end = text.find('/');
    if (end == std::string_view::npos) return false;
    if (!append_component(identity, letter_of(*field), text.substr(0, end))) return false;
    text.remove_prefix(end + 1);
  }
  return text.empty();
}

}  // namespace vu::store
