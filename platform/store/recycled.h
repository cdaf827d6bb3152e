// Memory of what comes and goes by the thousand, kept for the next one: with so many at a time
// malloc's own caches do not help. Used in the library only, where one thread is at a time.
#pragma once

#include <cstddef>
#include <new>
#include <string>

namespace vu::store {

// How many of a kind are kept. Where memory is checked none are, so that uses after an end show.
#ifdef __SANITIZE_ADDRESS__
inline constexpr std::size_t kMostKept = 0;
#else
inline constexpr std::size_t kMostKept = 2048;
#endif

// To be derived from, as in `class Reply : public Recycled<Reply>`.
template <typename T>
class Recycled {
 public:
  static void* operator new(std::size_t size) {
    if (size != sizeof(T) || kept_ == nullptr) return ::operator new(size);
    Kept* const block = kept_;
    kept_ = block->next;
    --count_;
    return block;
  }
  static void operator delete(void* memory, std::size_t size) noexcept {
    if (size != sizeof(T) || count_ >= kMostKept) return ::operator delete(memory, size);
    kept_ = new (memory) Kept{kept_};
    ++count_;
  }

 private:
  struct Kept {
    Kept* next;
  };
  static inline Kept* kept_ = nullptr;
  static inline std::size_t count_ = 0;
};

// Strings, for texts that are made anew each time. An empty one, perhaps with room; throws
// std::bad_alloc.
std::string take_text();
void keep_text(std::string text) noexcept;

}  // namespace vu::store
