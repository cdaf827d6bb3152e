#include "failing_allocations.h"

#include <cerrno>
#include <cstdlib>
#include <new>
#include <utility>

#ifdef VU_SANITIZED
#define VU_HAS_OWN_MALLOC 0
#else
#define VU_HAS_OWN_MALLOC 1
#endif

namespace {

bool is_failing = false;
bool has_failed = false;
bool fails_on = false;
long left = 0;

bool fails() {
  if (!is_failing) return false;
  if (left > 0) {
    --left;
    return false;
  }
  is_failing = fails_on;
  has_failed = true;
  errno = ENOMEM;
  return true;
}

}  // namespace

#if VU_HAS_OWN_MALLOC

// The C library's own, under the names that it keeps for this.
extern "C" {
void* __libc_malloc(std::size_t size);                     // NOLINT
void* __libc_calloc(std::size_t count, std::size_t size);  // NOLINT
void* __libc_realloc(void* block, std::size_t size);       // NOLINT

void* malloc(std::size_t size) { return fails() ? nullptr : __libc_malloc(size); }
void* calloc(std::size_t nmemb, std::size_t size) {
  return fails() ? nullptr : __libc_calloc(nmemb, size);
}
void* realloc(void* ptr, std::size_t size) { return fails() ? nullptr : __libc_realloc(ptr, size); }
}

#else

void* operator new(std::size_t size) {
  void* const block = fails() ? nullptr : std::malloc(size == 0 ? 1 : size);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}
void* operator new[](std::size_t size) { return operator new(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return fails() ? nullptr : std::malloc(size == 0 ? 1 : size);
}
void* operator new[](std::size_t size, const std::nothrow_t& nothrow) noexcept {
  return operator new(size, nothrow);
}
void operator delete(void* block) noexcept { std::free(block); }
void operator delete(void* block, std::size_t) noexcept { std::free(block); }
void operator delete[](void* block) noexcept { std::free(block); }
void operator delete[](void* block, std::size_t) noexcept { std::free(block); }

#endif

namespace vu::testing {

void fail_allocations(long spared, Failing failing) {
  left = spared;
  fails_on = failing == Failing::kFromThenOn;
  has_failed = false;
  is_failing = true;
}

bool end_failing_allocations() {
  is_failing = false;
  return std::exchange(has_failed, false);
}

Spared::Spared() : was_failing_(std::exchange(is_failing, false)) {}

Spared::~Spared() { is_failing = was_failing_; }

}  // namespace vu::testing
