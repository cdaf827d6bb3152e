// Makes the signal handlers of the interpreter end a wait.
#pragma once

namespace vu_thread {

class WaitSet;

// At import. Raises.
void prepare_signal_wakeup();

// While it exists, a signal ends the waits of `set`, whichever thread the kernel interrupts
// and however late before the wait it came. Does nothing on other threads than the main
// one, where no Python signal handler runs, and nothing where the application has set a
// wake-up descriptor of its own. Requires the interpreter lock.
class SignalWakeup {
 public:
  explicit SignalWakeup(WaitSet& set);
  ~SignalWakeup();
  SignalWakeup(const SignalWakeup&) = delete;
  SignalWakeup& operator=(const SignalWakeup&) = delete;

 private:
  void uninstall();

  bool is_installed_ = false;
  int previous_ = -1;  // ours, where a callback of one loop runs another loop
};

}  // namespace vu_thread
