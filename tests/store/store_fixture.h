// A client of the store for tests: it keeps what its callbacks get.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "test_messages.h"
#include "vu_platform.h"
#include "vu_store.h"

namespace vu::store::test {

// One delivery, copied while it was valid.
struct Seen {
  int label = 0;  // which request or subscription
  int type_code = -1;
  unsigned end_mark = 0;
  int status = 0;
  std::string error;
  std::int64_t time_us = 0;
  std::int64_t count = 0;
  unsigned tag = 0;
  int db = 0;
  bool has_key = false;
  std::string key;
  bool has_data = false;
  int payload = 0;  // vu_platform_payload_kind; 0: a message, or nothing
  std::int64_t integer = 0;
  double score = 0;
  std::vector<std::string> texts;  // the messages
  std::vector<double> scores;
  std::vector<std::size_t> tags;

  // The one message; "" where there is none.
  std::string text() const { return texts.empty() ? "" : texts[0]; }
};

class Client {
 public:
  explicit Client(const std::string& store = "embedded:", uv_loop_s* loop = nullptr);
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;
  ~Client();

  vu_mom_handle* handle() const { return handle_; }
  void close() { vu_platform_close(handle_); }
  void free();

  // A privdata for the callbacks. `then` runs inside the callback, after it is kept.
  void* slot(int label, std::function<void(const Seen&)> then = {});
  static void on_reply(void*, const vu_mom_reply* reply, void* privdata);
  static std::int32_t on_stream(void*, const vu_mom_reply* reply, void* privdata);

  // Delivers all that waits and takes what came since the last time.
  std::vector<Seen> drain();
  // Delivers at most `most` and says whether more is waiting.
  bool deliver(std::uint32_t most) { return vu_platform_deliver(handle_, most) != 0; }
  std::vector<Seen> take();

  // Runs a command whose callback and privdata come last; its replies.
  template <typename Function, typename... Arguments>
  std::vector<Seen> ask_all(Function function, const Arguments&... arguments) {
    const int label = --own_label_;
    EXPECT_EQ(function(handle_, arguments..., &on_reply, slot(label)), VU_MOM_OK);
    std::vector<Seen> replies;
    for (Seen& seen : drain()) {
      (seen.label == label ? replies : others_).push_back(std::move(seen));
    }
    return replies;
  }
  // The same for a command with one reply.
  template <typename Function, typename... Arguments>
  Seen ask(Function function, const Arguments&... arguments) {
    std::vector<Seen> replies = ask_all(function, arguments...);
    EXPECT_EQ(replies.size(), 1u);
    return replies.empty() ? Seen() : replies[0];
  }
  // A command without a reply.
  template <typename Function, typename... Arguments>
  void send(Function function, const Arguments&... arguments) {
    EXPECT_EQ(function(handle_, arguments..., nullptr, nullptr), VU_MOM_OK);
  }

  void set(const Live& message, std::int32_t flag = 0, std::int32_t db = 0) {
    EXPECT_EQ(vu_mom_set_ext(handle_, db, &flag, message, nullptr, nullptr), VU_MOM_OK);
  }
  Seen get(const Live& message, std::int32_t db = 0) { return ask(vu_mom_get, db, message); }
  std::vector<Seen> scan(const Live& message, std::uint32_t level, std::int32_t db = 0);
  std::vector<Seen> scan_index(const Live& message, std::uint32_t level, std::int32_t db = 0);
  void subscribe(const Live& message, std::uint32_t level, int label, std::int32_t db = 0);
  void subscribe_field(const Live& message, std::uint32_t level, std::size_t tag, int label);
  // What came besides the replies of ask(), with all that waits.
  std::vector<Seen> events();

  void advance(std::int64_t microseconds) { vu_platform_advance_clock(handle_, microseconds); }
  int wakes() const { return wakes_; }

 private:
  struct Slot {
    Client* client;
    int label;
    std::function<void(const Seen&)> then;
  };
  static void keep(const vu_mom_reply* reply, void* privdata);

  vu_mom_handle* handle_ = nullptr;
  std::deque<Slot> slots_;
  std::vector<Seen> seen_;
  std::vector<Seen> others_;
  int own_label_ = 0;
  int wakes_ = 0;
};

inline constexpr std::int64_t kSecond = 1000000;

}  // namespace vu::store::test
