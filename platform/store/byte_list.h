// A list of byte strings in one block of memory.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace vu::store {

class ByteList {
 public:
  std::size_t size() const { return ends_.size(); }
  bool empty() const { return ends_.empty(); }

  // Room for `count` strings of `bytes` bytes altogether.
  void reserve(std::size_t count, std::size_t bytes) {
    ends_.reserve(count);
    bytes_.reserve(bytes);
  }

  void add(std::string_view bytes) {
    bytes_.append(bytes);
    ends_.push_back(bytes_.size());
  }

  std::string_view operator[](std::size_t index) const {
    const std::size_t begin = index == 0 ? 0 : ends_[index - 1];
    return std::string_view(bytes_).substr(begin, ends_[index] - begin);
  }

 private:
  std::string bytes_;
  std::vector<std::size_t> ends_;
};

}  // namespace vu::store
