// The threading rules of vu_mom_impl.h and vu_platform.h, checked where assertions are (NDEBUG
// is not defined): a caller that breaks one is told so on stderr, in one line, and the process
// ends there and then.
#pragma once

namespace vu::store {

#ifdef NDEBUG

#define VU_STORE_ENTRY() static_cast<void>(0)

class CallingOut {
 public:
  CallingOut() {}
};

#else

// The first statement of every exported function.
#define VU_STORE_ENTRY() const vu::store::Entered entered(__func__)

// The time that a thread spends in a function of the library.
class Entered {
 public:
  explicit Entered(const char* function) noexcept;
  ~Entered();
  Entered(const Entered&) = delete;
  Entered& operator=(const Entered&) = delete;

 private:
  bool is_outermost_;
};

// The time that a callback takes: it may release the interpreter lock, and then other threads
// may come in.
class CallingOut {
 public:
  CallingOut() noexcept;
  ~CallingOut();
  CallingOut(const CallingOut&) = delete;
  CallingOut& operator=(const CallingOut&) = delete;
};

#endif

}  // namespace vu::store
