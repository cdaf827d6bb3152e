#include "recycled.h"

#include <array>
#include <memory>
#include <new>
#include <utility>
#include <vector>

namespace vu::store {

namespace {

// Strings are kept apart by their room, so that those that are taken have enough of it and those
// that stay with somebody not too much.
struct KeptTexts {
  std::size_t most_room;  // of each; those that are made have as much, but for the longest
  std::vector<std::string> texts = {};
  std::size_t room = 0;
};

constexpr std::size_t kLong = 8192;
constexpr std::size_t kAllRoom = 256 * kMostKept;  // of all that are kept of one sort

using AllTexts = std::array<KeptTexts, 4>;
AllTexts* kept_texts = nullptr;  // never destroyed

// Those with at most so much room; null: they are longer than what is kept.
KeptTexts* texts_for(std::size_t room) {
  for (KeptTexts& kept : *kept_texts) {
    if (room <= kept.most_room) return &kept;
  }
  return nullptr;
}

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

std::string take_text(std::size_t room) {
  if (kept_texts == nullptr) {
    auto made = std::make_unique<AllTexts>(AllTexts{{{64}, {128}, {256}, {kLong}}});
    for (KeptTexts& kept : *made) kept.texts.reserve(kMostKept);
    kept_texts = made.release();
  }
  std::string text;
  KeptTexts* const kept = texts_for(room);
  if (kept != nullptr && !kept->texts.empty()) {
    text = std::move(kept->texts.back());
    kept->texts.pop_back();
    kept->room -= text.capacity();
  }
  text.reserve(kept == nullptr || kept->most_room == kLong ? room : kept->most_room);
  return text;
}

void keep_allocated_text(std::string&& text) noexcept {
  if (kept_texts == nullptr) return;
  const std::size_t room = text.capacity();
  KeptTexts* const kept = texts_for(room);
  if (kept == nullptr || kept->texts.size() == kept->texts.capacity()) return;
  if (kept->room + room > kAllRoom) return;
  kept->room += room;
  text.clear();
  kept->texts.push_back(std::move(text));
}

}  // namespace vu::store
