// Replies as the parser builds them, in memory that is used again for the next reply.
#pragma once

#include <array>
#include <cstddef>

struct redisReader;

namespace vu::store {

class ReplyMemory {
 public:
  ReplyMemory() = default;
  ReplyMemory(const ReplyMemory&) = delete;
  ReplyMemory& operator=(const ReplyMemory&) = delete;
  ~ReplyMemory() { forget(); }

  // A parser whose replies are here, and are not to be freed. Null: there is no memory.
  redisReader* make_reader() noexcept;

  // Room for one thing, aligned for a reply or a pointer. Null: there is no memory.
  void* take(std::size_t size) noexcept;
  // Gives back all that was taken.
  void forget() noexcept;

 private:
  struct Block;

  static constexpr std::size_t kAlignment = alignof(void*) > alignof(long long)
                                                ? alignof(void*)
                                                : alignof(long long);

  // Most replies are not larger than this.
  alignas(kAlignment) std::array<char, 2048> usual_;
  char* next_ = usual_.data();
  std::size_t left_ = usual_.size();
  Block* blocks_ = nullptr;  // for what did not fit
};

}  // namespace vu::store
