// A list of byte strings in one block of memory.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "recycled.h"

namespace vu::store {

class ByteList {
 public:
  ByteList() = default;
  ByteList(const ByteList&) = default;
  ByteList& operator=(const ByteList&) = default;
  ByteList(ByteList&& other) noexcept
      : bytes_(std::move(other.bytes_)),
        begins_(std::move(other.begins_)),
        count_(std::exchange(other.count_, 0)) {}
  ByteList& operator=(ByteList&& other) noexcept {
    bytes_ = std::move(other.bytes_);
    begins_ = std::move(other.begins_);
    count_ = std::exchange(other.count_, 0);
    return *this;
  }
  ~ByteList() { keep_text(std::move(bytes_)); }

  std::size_t size() const { return count_; }
  bool empty() const { return count_ == 0; }

  // Room for `count` strings of `bytes` bytes altogether.
  void reserve(std::size_t count, std::size_t bytes) {
    if (count > 1) begins_.reserve(count - 1);
    bytes_.reserve(bytes);
  }

  // Where it throws std::bad_alloc, the list is as it was.
  void add(std::string_view bytes) {
    begins_.resize(count_);
    if (count_ == 0) {
      if (bytes_.capacity() < bytes.size()) bytes_ = take_text(bytes.size());
      bytes_.clear();
    } else {
      begins_.back() = bytes_.size();
    }
    bytes_.append(bytes);
    ++count_;
  }

  std::string_view operator[](std::size_t index) const {
    const std::size_t begin = index == 0 ? 0 : begins_[index - 1];
    const std::size_t end = index + 1 == count_ ? bytes_.size() : begins_[index];
    return std::string_view(bytes_).substr(begin, end - begin);
  }

 private:
  std::string bytes_;
  std::vector<std::size_t> begins_;  // of all but the first: most lists have one
  std::size_t count_ = 0;
};

}  // namespace vu::store
