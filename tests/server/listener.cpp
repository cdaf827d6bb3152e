#include "listener.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace vu::testing {

Listener::Listener(const std::string& url) {
  store::Address address;
  std::string error;
  EXPECT_TRUE(store::parse_address(url, address, error)) << error;
  stream_ = store::make_event_stream(address, loop_.get(), *this);
}

Listener::~Listener() { stream_->close(); }

bool Listener::settle() {
  mark();
  flush();
  return loop_.run_until([this] { return told_mark_ == last_mark_; });
}

bool Listener::wait_for(const std::string& what) {
  const std::size_t wanted = ++waited_for_;
  return loop_.run_until([&] { return count(what) >= wanted; });
}

std::size_t Listener::count(const std::string& what) const {
  return static_cast<std::size_t>(std::count(told_.begin(), told_.end(), what));
}

void Listener::on_message(std::string_view channel, std::string_view message) noexcept {
  told_.push_back(std::string(channel) + "=" + std::string(message));
}

void Listener::on_mark(std::uint64_t mark) noexcept {
  EXPECT_GT(mark, told_mark_);
  told_mark_ = mark;
  told_.emplace_back("mark");
}

}  // namespace vu::testing
