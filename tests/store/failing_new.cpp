#include "failing_new.h"

#include <cstdlib>
#include <new>

namespace {

long allocations_left = -1;  // negative: no limit

bool next_allocation_fails() {
  if (allocations_left < 0) return false;
  if (allocations_left == 0) return true;
  --allocations_left;
  return false;
}

}  // namespace

void* operator new(std::size_t size) {
  void* const block = next_allocation_fails() ? nullptr : std::malloc(size == 0 ? 1 : size);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}
void* operator new[](std::size_t size) { return operator new(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return next_allocation_fails() ? nullptr : std::malloc(size == 0 ? 1 : size);
}
void* operator new[](std::size_t size, const std::nothrow_t& nothrow) noexcept {
  return operator new(size, nothrow);
}
void operator delete(void* block) noexcept { std::free(block); }
void operator delete(void* block, std::size_t) noexcept { std::free(block); }
void operator delete[](void* block) noexcept { std::free(block); }
void operator delete[](void* block, std::size_t) noexcept { std::free(block); }

namespace vu::store::test {

void limit_allocations(long count) { allocations_left = count; }
void unlimit_allocations() { allocations_left = -1; }

}  // namespace vu::store::test
