// An event stream, driven by a loop of its own, and what it has told.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "client.h"
#include "event_stream.h"

namespace vu::testing {

class Listener final : store::EventStream::Listener {
 public:
  explicit Listener(const std::string& url);
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;
  ~Listener();

  void subscribe(const std::string& channel) { stream_->subscribe(channel); }
  void unsubscribe(const std::string& channel) { stream_->unsubscribe(channel); }
  void mark() { last_mark_ = stream_->mark(); }
  void flush() { stream_->flush(); }
  void pause(bool paused) { stream_->pause(paused); }

  // Asks for a mark and waits for it. False where it does not come.
  bool settle();
  bool turn_until(const std::function<bool()>& done) { return loop_.run_until(done); }
  void turn_ms(unsigned milliseconds) {
    loop_.run_until([] { return false; }, milliseconds);
  }
  // Waits until `what` is told once more than it was when this was last called.
  bool wait_for(const std::string& what);

  // "CHANNEL=MESSAGE", "mark", "gap", in the order in which they came.
  const std::vector<std::string>& told() const { return told_; }
  std::size_t count(const std::string& what) const;

 private:
  void on_message(std::string_view channel, std::string_view message) noexcept override;
  void on_mark(std::uint64_t mark) noexcept override;
  void on_gap() noexcept override { told_.emplace_back("gap"); }
  void on_stream_wake() noexcept override {}

  UvLoop loop_;
  std::unique_ptr<store::EventStream> stream_;
  std::uint64_t last_mark_ = 0;
  std::uint64_t told_mark_ = 0;
  std::size_t waited_for_ = 0;
  std::vector<std::string> told_;
};

}  // namespace vu::testing
