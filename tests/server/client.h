// A router, driven by a loop of its own, and what came of its commands.
#pragma once

#include <uv.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "router.h"

namespace vu::testing {

class UvLoop {
 public:
  UvLoop();
  UvLoop(const UvLoop&) = delete;
  UvLoop& operator=(const UvLoop&) = delete;
  ~UvLoop();  // checks that nothing is left in it
  uv_loop_t* get() { return &loop_; }
  // Turns it until `done` says so. False where that takes longer than `most_ms`.
  bool run_until(const std::function<bool()>& done, unsigned most_ms = 10'000);

 private:
  uv_loop_t loop_;
};

class Client final : store::Router::Listener {
 public:
  explicit Client(const std::string& url);
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;
  ~Client();

  store::Router& router() { return *router_; }
  UvLoop& loop() { return loop_; }

  // Returns the number of the command.
  int send(const std::vector<std::string>& words, bool only_reads = false, unsigned partition = 0);
  int push(const std::string& value, const std::string& key = "list");
  int size(const std::string& key = "list");

  // Flushes, and waits until everything is told. False where that takes too long.
  bool finish(unsigned most_ms = 10'000);
  // One command and what came of it.
  std::string ask(const std::vector<std::string>& words, bool only_reads = false);

  // What came of a command in one line: the reply, "not done: ..." or "unknown: ...".
  std::string told(int number) const;
  bool is_told(int number) const { return told_.count(number) != 0; }
  const std::vector<int>& order() const { return order_; }
  void close() { router_->close(); }

 private:
  void on_outcome(void* ticket, const store::Outcome& outcome) noexcept override;
  void on_router_wake() noexcept override {}

  UvLoop loop_;
  std::unique_ptr<store::Router> router_;
  int last_ = 0;
  std::map<int, std::string> told_;
  std::vector<int> order_;
};

}  // namespace vu::testing
