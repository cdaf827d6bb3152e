// A command in the protocol's bytes, put together word by word.
#pragma once

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "../recycled.h"

namespace vu::store {

template <typename Integer>
void append_decimal(std::string& to, Integer value) {
  char digits[24];
  const auto end = std::to_chars(digits, digits + sizeof(digits), value).ptr;
  to.append(digits, end);
}

// Appends an array's or a word's head: the sign, a number, and the end of the line.
inline void append_head(std::string& to, char sign, std::size_t number) {
  char line[24];
  line[0] = sign;
  char* const end = std::to_chars(line + 1, line + sizeof(line) - 2, number).ptr;
  end[0] = '\r';
  end[1] = '\n';
  to.append(line, end + 2);
}

inline void append_word(std::string& to, std::string_view word) {
  append_head(to, '$', word.size());
  to.append(word).append("\r\n");
}

class CommandText {
 public:
  // Room for words of `bytes` bytes altogether.
  explicit CommandText(std::size_t bytes) : words_(take_text(bytes)) {}
  CommandText(const CommandText&) = delete;
  CommandText& operator=(const CommandText&) = delete;
  ~CommandText() { keep_text(std::move(words_)); }

  CommandText& add(std::string_view word) {
    append_word(words_, word);
    ++count_;
    return *this;
  }

  CommandText& add_integer(std::int64_t value) {
    char digits[24];
    const auto end = std::to_chars(digits, digits + sizeof(digits), value).ptr;
    return add(std::string_view(digits, static_cast<std::size_t>(end - digits)));
  }

  // As the server reads and writes it: exact, and "inf" where it is.
  CommandText& add_score(double value) {
    char digits[40];
    const auto end = std::to_chars(digits, digits + sizeof(digits), value).ptr;
    return add(std::string_view(digits, static_cast<std::size_t>(end - digits)));
  }

  std::string text() const {
    std::string whole = take_text(words_.size() + 16);
    append_head(whole, '*', count_);
    return whole.append(words_);
  }

 private:
  std::string words_;
  std::size_t count_ = 0;
};

}  // namespace vu::store
