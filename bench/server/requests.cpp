// Requests in flight, without Python: bench_server SOCKET TURNS. For each turn and candidate a
// line with its name, and nanoseconds of time and of this process's processor time for one `get`.
#include <hiredis/adapters/libuv.h>
#include <hiredis/async.h>
#include <uv.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "objects.h"
#include "vu_platform.h"

namespace vu::bench {
namespace {

constexpr std::size_t kInFlight = 1000;
constexpr std::size_t kBatches = 20;

std::int64_t nanoseconds(clockid_t clock) {
  timespec now = {};
  clock_gettime(clock, &now);
  return std::int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

void require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "bench_server: %s\n", what);
  std::exit(1);
}

struct Counts {
  std::size_t done = 0;
  std::size_t right = 0;
};

class Ours {
 public:
  Ours(uv_loop_t* loop, const std::string& socket) : loop_(loop) {
    std::array<char, 200> error = {};
    handle_ = vu_platform_open(("redis+unix://" + socket).c_str(), loop, nullptr, nullptr,
                               error.data(), error.size());
    require(handle_ != nullptr, error.data());
    for (const std::string& name : names(kInFlight)) {
      messages_.push_back(std::make_unique<Message>());
      messages_.back()->set_key(name);
      messages_.back()->set_bytes(std::string(kValueSize - 2, '.'));
      std::int32_t flags = 0;
      require(vu_mom_set_ext(handle_, 0, &flags, messages_.back()->address(), nullptr, nullptr) ==
                  VU_MOM_OK,
              "set");
    }
  }
  ~Ours() { vu_platform_free(handle_); }
  Ours(const Ours&) = delete;
  Ours& operator=(const Ours&) = delete;

  Counts batch() {
    Counts counts;
    for (const auto& message : messages_) {
      vu_mom_get(
          handle_, 0, message->address(),
          [](void*, const vu_mom_reply* reply, void* all) {
            Counts& told = *static_cast<Counts*>(all);
            ++told.done;
            if (reply->data != nullptr) ++told.right;
          },
          &counts);
    }
    for (;;) {
      vu_platform_deliver(handle_, kInFlight);
      if (counts.done == kInFlight) return counts;
      uv_run(loop_, UV_RUN_ONCE);
    }
  }

 private:
  uv_loop_t* loop_;
  vu_mom_handle* handle_;
  std::vector<std::unique_ptr<Message>> messages_;
};

class Hiredis {
 public:
  Hiredis(uv_loop_t* loop, const std::string& socket)
      : loop_(loop), context_(redisAsyncConnectUnix(socket.c_str())) {
    require(context_ != nullptr && context_->err == 0, "hiredis does not connect");
    redisLibuvAttach(context_, loop);
    const std::string value(kValueSize, '.');
    for (const std::string& name : names(kInFlight)) {
      keys_.push_back("hiredis:object:" + name);
      redisAsyncCommand(context_, nullptr, nullptr, "SET %b %b", keys_.back().data(),
                        keys_.back().size(), value.data(), value.size());
    }
  }
  ~Hiredis() { redisAsyncFree(context_); }
  Hiredis(const Hiredis&) = delete;
  Hiredis& operator=(const Hiredis&) = delete;

  Counts batch() {
    Counts counts;
    for (const std::string& key : keys_) {
      std::array<const char*, 2> words = {"GET", key.data()};
      const std::array<std::size_t, 2> sizes = {3, key.size()};
      redisAsyncCommandArgv(
          context_,
          [](redisAsyncContext*, void* reply, void* all) {
            Counts& told = *static_cast<Counts*>(all);
            ++told.done;
            const auto* const text = static_cast<const redisReply*>(reply);
            if (text != nullptr && text->len == kValueSize) ++told.right;
          },
          &counts, 2, words.data(), sizes.data());
    }
    while (counts.done != kInFlight) uv_run(loop_, UV_RUN_ONCE);
    return counts;
  }

 private:
  uv_loop_t* loop_;
  redisAsyncContext* context_;
  std::vector<std::string> keys_;
};

template <typename Candidate>
void measure(const char* name, Candidate& candidate) {
  const std::int64_t start = nanoseconds(CLOCK_MONOTONIC);
  const std::int64_t start_of_process = nanoseconds(CLOCK_PROCESS_CPUTIME_ID);
  for (std::size_t i = 0; i < kBatches; ++i) {
    require(candidate.batch().right == kInFlight, "wrong replies");
  }
  const auto each = [](std::int64_t all) {
    return static_cast<double>(all) / static_cast<double>(kBatches * kInFlight);
  };
  std::printf("%s %.1f %.1f\n", name, each(nanoseconds(CLOCK_MONOTONIC) - start),
              each(nanoseconds(CLOCK_PROCESS_CPUTIME_ID) - start_of_process));
}

}  // namespace
}  // namespace vu::bench

int main(int argc, char** argv) {
  using namespace vu::bench;
  require(argc == 3, "usage: bench_server SOCKET TURNS");
  uv_loop_t loop;
  require(uv_loop_init(&loop) == 0, "no loop");
  {
    Ours ours(&loop, argv[1]);
    Hiredis hiredis(&loop, argv[1]);
    ours.batch();
    hiredis.batch();
    for (int turns = std::atoi(argv[2]); turns > 0; --turns) {
      measure("engine", ours);
      measure("hiredis", hiredis);
    }
  }
  uv_run(&loop, UV_RUN_NOWAIT);
}
