// Memory that ends where a test wants it, for the whole test program: of malloc, which the
// libraries use, and of operator new. Under a sanitizer, which has a malloc of its own, of
// operator new alone.
#pragma once

namespace vu::testing {

enum class Failing { kOnce, kFromThenOn };

// The allocation behind the next `spared` ones fails, or it and all that follow.
void fail_allocations(long spared, Failing failing);
// Ends that. Returns whether any has failed.
bool end_failing_allocations();

// No allocation fails while it lives.
class Spared {
 public:
  Spared();
  Spared(const Spared&) = delete;
  Spared& operator=(const Spared&) = delete;
  ~Spared();

 private:
  const bool was_failing_;
};

}  // namespace vu::testing
