#include "client.h"

#include <gtest/gtest.h>
#include <hiredis/hiredis.h>

#include "protocol.h"
#include "redis_server.h"

namespace vu::testing {

UvLoop::UvLoop() { uv_loop_init(&loop_); }

UvLoop::~UvLoop() {
  for (int turns = 0; turns < 100 && uv_loop_alive(&loop_) != 0; ++turns) {
    uv_run(&loop_, UV_RUN_NOWAIT);
    sleep_ms(turns < 8 ? 0 : 10);
  }
  EXPECT_EQ(uv_loop_close(&loop_), 0);
}

bool UvLoop::run_until(const std::function<bool()>& done, unsigned most_ms) {
  const std::int64_t end = now_ms() + most_ms;
  uv_timer_t look;
  uv_timer_init(&loop_, &look);
  uv_timer_start(&look, [](uv_timer_t*) {}, 1, 5);
  while (!done() && now_ms() < end) uv_run(&loop_, UV_RUN_ONCE);
  const bool is_done = done();
  uv_close(reinterpret_cast<uv_handle_t*>(&look), nullptr);
  uv_run(&loop_, UV_RUN_NOWAIT);
  return is_done;
}

namespace {

std::string line_of(const redisReply& reply) {
  if (reply.type == REDIS_REPLY_INTEGER) return std::to_string(reply.integer);
  if (reply.type == REDIS_REPLY_NIL) return "nil";
  if (reply.type == REDIS_REPLY_ARRAY) return "array of " + std::to_string(reply.elements);
  const std::string text(reply.str, reply.len);
  return reply.type == REDIS_REPLY_ERROR ? "error: " + text : text;
}

}  // namespace

Client::Client(const std::string& url) {
  store::Address address;
  std::string error;
  EXPECT_TRUE(store::parse_address(url, address, error)) << error;
  router_ = store::make_router(address, loop_.get(), *this);
}

Client::~Client() {
  router_->close();
  EXPECT_EQ(router_->pending(), 0U);
  EXPECT_EQ(static_cast<int>(order_.size()), last_) << "not everything was told";
  router_.reset();
}

int Client::send(const std::vector<std::string>& words, bool only_reads, unsigned partition) {
  std::string command;
  store::append_command(command, {words.begin(), words.end()});
  const int number = last_ + 1;
  router_->send(partition, command, only_reads, reinterpret_cast<void*>(std::intptr_t{number}));
  return last_ = number;
}

int Client::push(const std::string& value, const std::string& key) {
  return send({"FCALL", "test_push", "1", key, value});
}

int Client::size(const std::string& key) { return send({"FCALL", "test_size", "1", key}, true); }

bool Client::finish(unsigned most_ms) {
  router_->flush();
  return loop_.run_until([this] { return router_->pending() == 0; }, most_ms);
}

std::string Client::ask(const std::vector<std::string>& words, bool only_reads) {
  const int number = send(words, only_reads);
  return finish() ? told(number) : "nothing was told";
}

std::string Client::told(int number) const {
  const auto found = told_.find(number);
  return found == told_.end() ? "nothing was told" : found->second;
}

void Client::on_outcome(void* ticket, const store::Outcome& outcome) noexcept {
  const int number = static_cast<int>(reinterpret_cast<std::intptr_t>(ticket));
  std::string line;
  switch (outcome.kind) {
    case store::Outcome::Kind::kReply:
      line = line_of(*outcome.reply);
      break;
    case store::Outcome::Kind::kNotDone:
      line = std::string("not done: ") + outcome.reason;
      break;
    case store::Outcome::Kind::kUnknown:
      line = std::string("unknown: ") + outcome.reason;
      break;
  }
  EXPECT_EQ(told_.count(number), 0U) << number << " was told twice";
  told_[number] = line;
  order_.push_back(number);
}

}  // namespace vu::testing
