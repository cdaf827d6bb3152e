// A fuzzer's bytes, read as the choices of a test. Behind their end every choice is 0.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace vu::fuzz {

class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : at_(data), end_(data + size) {}

  bool empty() const { return at_ == end_; }
  std::uint8_t byte() { return empty() ? std::uint8_t{0} : *at_++; }
  bool flag() { return (byte() & 1) != 0; }
  // A number below `count`.
  std::size_t pick(std::size_t count) { return byte() % count; }
  template <typename Value, std::size_t count>
  const Value& pick(const Value (&values)[count]) {
    return values[pick(count)];
  }
  template <typename Values>
  const auto& pick_of(const Values& values) {
    return values[pick(values.size())];
  }
  // Mostly small, either sign, now and then at the edge.
  std::int32_t number() {
    const auto small = static_cast<std::int8_t>(byte());
    if (small == INT8_MAX) return INT32_MAX;
    if (small == INT8_MIN) return INT32_MIN;
    return small;
  }
  // At most `size` bytes.
  std::string_view bytes(std::size_t size) {
    const auto left = static_cast<std::size_t>(end_ - at_);
    if (size > left) size = left;
    const std::string_view taken(static_cast<const char*>(static_cast<const void*>(at_)), size);
    at_ += size;
    return taken;
  }
  std::string_view rest() { return bytes(static_cast<std::size_t>(end_ - at_)); }

 private:
  const std::uint8_t* at_;
  const std::uint8_t* end_;
};

// What was found wrong: ends the process, so that the fuzzer keeps the input.
[[noreturn]] inline void fail(const char* what) {
  std::fprintf(stderr, "fuzz: %s\n", what);
  std::abort();
}

inline void check(bool condition, const char* what) {
  if (!condition) fail(what);
}

}  // namespace vu::fuzz
