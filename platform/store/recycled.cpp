#include "recycled.h"

#include <memory>
#include <new>
#include <utility>
#include <vector>

namespace vu::store {

namespace {

constexpr std::size_t kMostRoom = 4096;            // of a text that is kept
constexpr std::size_t kAllRoom = 512 * kMostKept;  // of all of them

std::vector<std::string>* kept_texts = nullptr;  // never destroyed
std::size_t kept_room = 0;

}  // namespace

void* KeptBlocks::take(std::size_t size, std::size_t usual) {
  if (size != usual || first_ == nullptr) return ::operator new(size);
  Block* const block = first_;
  first_ = block->next;
  --count_;
  return block;
}

void KeptBlocks::give(void* memory, std::size_t size, std::size_t usual) noexcept {
  if (size != usual || count_ == kMostKept) {
    ::operator delete(memory);
    return;
  }
  first_ = new (memory) Block{first_};
  ++count_;
}

std::string take_text() {
  if (kept_texts == nullptr) {
    auto texts = std::make_unique<std::vector<std::string>>();
    texts->reserve(kMostKept);
    kept_texts = texts.release();
  }
  if (kept_texts->empty()) return {};
  std::string text = std::move(kept_texts->back());
  kept_texts->pop_back();
  kept_room -= text.capacity();
  return text;
}

void keep_text(std::string text) noexcept {
  if (kept_texts == nullptr || kept_texts->size() == kept_texts->capacity()) return;
  const std::size_t room = text.capacity();
  if (room == std::string().capacity() || room > kMostRoom || kept_room + room > kAllRoom) return;
  kept_room += room;
  text.clear();
  kept_texts->push_back(std::move(text));
}

}  // namespace vu::store
