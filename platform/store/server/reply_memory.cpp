#include "reply_memory.h"

#include <hiredis/hiredis.h>

#include <algorithm>
#include <cstring>
#include <new>

namespace vu::store {

namespace {

constexpr std::size_t kBlockSize = std::size_t{64} * 1024;

// No honest reply has more elements: what says so is corrupt.
constexpr int kMostElements = 1 << 26;

ReplyMemory& memory_of(const redisReadTask* task) {
  return *static_cast<ReplyMemory*>(task->privdata);
}

// A reply with `more` bytes behind it, at its place in the array that it belongs to.
redisReply* add(const redisReadTask* task, std::size_t more) {
  void* const room = memory_of(task).take(sizeof(redisReply) + more);
  if (room == nullptr) return nullptr;
  auto* const reply = new (room) redisReply();
  reply->type = task->type;
  if (task->parent != nullptr) {
    static_cast<redisReply*>(task->parent->obj)->element[task->idx] = reply;
  }
  return reply;
}

void* add_string(const redisReadTask* task, char* bytes, std::size_t size) {
  redisReply* const reply = add(task, size + 1);
  if (reply == nullptr) return nullptr;
  reply->str = static_cast<char*>(static_cast<void*>(reply + 1));
  reply->len = size;
  std::memcpy(reply->str, bytes, size);
  reply->str[size] = '\0';
  return reply;
}

void* add_array(const redisReadTask* task, int elements) {
  if (elements > kMostElements) return nullptr;
  const auto count = static_cast<std::size_t>(elements);
  redisReply* const reply = add(task, count * sizeof(redisReply*));
  if (reply == nullptr) return nullptr;
  reply->elements = count;
  reply->element = static_cast<redisReply**>(static_cast<void*>(reply + 1));
  return reply;
}

void* add_integer(const redisReadTask* task, long long value) {
  redisReply* const reply = add(task, 0);
  if (reply != nullptr) reply->integer = value;
  return reply;
}

void* add_nil(const redisReadTask* task) {
  redisReply* const reply = add(task, 0);
  if (reply != nullptr) reply->type = REDIS_REPLY_NIL;  // the task's is what it might have been
  return reply;
}

redisReplyObjectFunctions functions = {add_string, add_array, add_integer, add_nil, [](void*) {}};

}  // namespace

struct ReplyMemory::Block {
  Block* next;
  // What is taken follows, aligned as the pointer is and no worse.
  // cppcheck-suppress unusedStructMember; it is where next_ begins
  alignas(kAlignment) char bytes[1];
};

redisReader* ReplyMemory::make_reader() noexcept {
  redisReader* const reader = redisReaderCreateWithFunctions(&functions);
  if (reader == nullptr) return nullptr;
  reader->privdata = this;
  reader->maxbuf = 0;  // else it asserts that memory for a smaller buffer is there
  return reader;
}

void* ReplyMemory::take(std::size_t size) noexcept {
  size = (size + kAlignment - 1) / kAlignment * kAlignment;
  if (size > left_) {
    const std::size_t room = std::max(size, kBlockSize);
    auto* const block =
        static_cast<Block*>(::operator new(offsetof(Block, bytes) + room, std::nothrow));
    if (block == nullptr) return nullptr;
    block->next = blocks_;
    blocks_ = block;
    next_ = block->bytes;
    left_ = room;
  }
  void* const taken = next_;
  next_ += size;
  left_ -= size;
  return taken;
}

void ReplyMemory::forget() noexcept {
  while (blocks_ != nullptr) {
    Block* const block = blocks_;
    blocks_ = block->next;
    ::operator delete(block);
  }
  next_ = usual_.data();
  left_ = usual_.size();
}

}  // namespace vu::store
