// Memory of what comes and goes by the thousand, kept for the next one: with so many at a time
// malloc's own caches do not help. Used in the library only, where one thread is at a time.
#pragma once

#include <cstddef>
#include <string>
#include <utility>

namespace vu::store {

// How many of a kind are kept. Where memory is checked none are, so that uses after an end show.
#ifdef VU_SANITIZED
inline constexpr std::size_t kMostKept = 0;
#else
inline constexpr std::size_t kMostKept = 2048;
#endif

// Blocks of one size; those of others come from and go to where memory always does. Throws
// std::bad_alloc.
class KeptBlocks {
 public:
  void* take(std::size_t size, std::size_t usual);
  void give(void* memory, std::size_t size, std::size_t usual) noexcept;

 private:
  struct Block {
    Block* next;
  };
  Block* first_ = nullptr;
  std::size_t count_ = 0;
};

// To be derived from, as in `class Reply : public Recycled<Reply>`.
template <typename T>
class Recycled {
 public:
  static void* operator new(std::size_t size) { return kept_.take(size, sizeof(T)); }
  static void operator delete(void* memory, std::size_t size) noexcept {
    kept_.give(memory, size, sizeof(T));
  }

 private:
  static inline KeptBlocks kept_;
};

// Strings, for texts that are made anew each time. An empty one with room for that many bytes;
// throws std::bad_alloc.
std::string take_text(std::size_t room);
void keep_allocated_text(std::string&& text) noexcept;
inline void keep_text(std::string&& text) noexcept {
  if (text.capacity() != std::string().capacity()) keep_allocated_text(std::move(text));
}

}  // namespace vu::store
