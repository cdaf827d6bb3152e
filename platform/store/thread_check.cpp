#include "thread_check.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>

#include "front.h"

namespace {

int (*holds_lock)() = nullptr;

}  // namespace

VU_STORE_EXPORT void vu_platform_check_threads(int (*lock_is_held)(void)) {
  VU_STORE_ENTRY();
  holds_lock = lock_is_held;
}

#ifndef NDEBUG

namespace vu::store {
namespace {

// Stands for the calling thread.
thread_local const char this_thread = 0;

// The thread that is inside the library; null: none.
std::atomic<const char*> inside{nullptr};

[[noreturn]] void end_process(const char* function, const char* what) noexcept {
  std::fprintf(stderr, "%s: %s\n", function, what);
  std::abort();
}

}  // namespace

Entered::Entered(const char* function) noexcept {
  if (holds_lock != nullptr && holds_lock() == 0) {
    end_process(function, "called on a thread that does not hold the interpreter lock");
  }
  const char* found = nullptr;
  is_outermost_ = inside.compare_exchange_strong(found, &this_thread);
  if (!is_outermost_ && found != &this_thread) {
    end_process(function, "called while another thread is inside the store library");
  }
}

Entered::~Entered() {
  if (is_outermost_) inside.store(nullptr);
}

CallingOut::CallingOut() noexcept { inside.store(nullptr); }

CallingOut::~CallingOut() {
  const char* found = nullptr;
  if (!inside.compare_exchange_strong(found, &this_thread)) {
    end_process("a callback", "returned while another thread is inside the store library");
  }
}

}  // namespace vu::store

#endif
