#include "event_stream.h"

#include <hiredis/hiredis.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <deque>
#include <new>
#include <set>

#include "cluster_stream.h"
#include "link.h"
#include "protocol.h"

namespace vu::store {

namespace {

std::string_view bytes_of(const redisReply& reply) { return {reply.str, reply.len}; }

// Marks travel as pings: what answers one has told all that was published before.
void append_ping(std::string& to, std::uint64_t number) {
  append_command(to, {"PING", std::to_string(number)});
}

// What an array of the server says: its kind, and what else it holds.
std::string_view word_of(const redisReply& reply, std::size_t at) {
  if (at >= reply.elements || reply.element[at]->type != REDIS_REPLY_STRING) return {};
  return bytes_of(*reply.element[at]);
}

class ServerEventStream final : public EventStream, Link::Owner {
 public:
  ServerEventStream(const Address& address, uv_loop_t* loop, Listener& listener)
      : listener_(listener),
        timeout_us_(address.command_timeout_us),
        link_(address, address.endpoints.front(), Link::Use::kEvents, loop, *this),
        timer_(
            loop, [](void* self) { static_cast<ServerEventStream*>(self)->on_time(); }, this) {}

  void subscribe(const std::string& channel) override;
  void unsubscribe(const std::string& channel) noexcept override;
  std::uint64_t mark() override;
  void flush() noexcept override;
  void pause(bool paused) noexcept override;
  std::uint64_t reconnects() const override { return link_.reconnects(); }
  void close() noexcept override;

 private:
  struct Mark {
    std::uint64_t number;
    std::int64_t deadline_us;  // 0: none yet
  };

  void on_up() noexcept override;
  void on_reply(const redisReply& reply) noexcept override;
  void on_writable() noexcept override { write(); }
  void on_down(const char* reason, bool is_refused) noexcept override;

  void queue(const std::string& bytes);
  void write() noexcept;
  void break_off(bool is_refused) noexcept;
  void ask() noexcept;
  void on_pong(std::string_view text) noexcept;
  void tell_marks(std::uint64_t last) noexcept;
  void miss() noexcept;
  std::int64_t due_us() const;
  void arm() noexcept;
  void on_time() noexcept;

  Listener& listener_;
  const std::int64_t timeout_us_;
  Link link_;
  UvTimer timer_;
  std::set<std::string, std::less<>> channels_;
  std::deque<Mark> marks_;
  std::uint64_t last_number_ = 0;
  std::string out_;  // not written; what of it is written already is `written_`
  std::size_t written_ = 0;
  std::uint64_t asked_ = 0;    // the last number pinged on this connection
  std::uint64_t heard_ = 0;    // the last one that came back
  std::int64_t heard_us_ = 0;  // when the server last said something, or was first asked
  std::int64_t armed_us_ = 0;  // when the timer ends
  bool was_heard_ = false;     // there has been a connection
  bool is_gap_owed_ = false;
  bool is_paused_ = false;
  std::int64_t looked_us_ = 0;  // when it last found something due
};

// ---- Calls -------------------------------------------------------------------------

void ServerEventStream::queue(const std::string& bytes) {
  if (written_ != 0) {
    out_.erase(0, written_);
    written_ = 0;
  }
  out_ += bytes;
}

void ServerEventStream::subscribe(const std::string& channel) {
  std::string bytes;
  if (link_.is_up()) append_command(bytes, {"SUBSCRIBE", channel});
  const auto [place, is_new] = channels_.insert(channel);
  if (!is_new) return;
  try {
    queue(bytes);
  } catch (...) {
    channels_.erase(place);
    throw;
  }
}

void ServerEventStream::unsubscribe(const std::string& channel) noexcept {
  if (channels_.erase(channel) == 0 || !link_.is_up()) return;
  try {
    std::string bytes;
    append_command(bytes, {"UNSUBSCRIBE", channel});
    queue(bytes);
  } catch (const std::bad_alloc&) {
    // The server goes on sending messages, which are dropped here.
  }
}

std::uint64_t ServerEventStream::mark() {
  const std::uint64_t number = last_number_ + 1;
  std::string bytes;
  if (link_.is_up()) append_ping(bytes, number);
  marks_.push_back({number, 0});
  try {
    queue(bytes);
  } catch (...) {
    marks_.pop_back();
    throw;
  }
  if (link_.is_up()) {
    if (asked_ == heard_) heard_us_ = steady_us();
    asked_ = number;
  }
  last_number_ = number;
  return number;
}

void ServerEventStream::flush() noexcept {
  const std::int64_t now_us = steady_us();
  for (auto mark = marks_.rbegin(); mark != marks_.rend() && mark->deadline_us == 0; ++mark) {
    mark->deadline_us = now_us + timeout_us_;
  }
  if (link_.is_up()) {
    write();
  } else if (!link_.is_open() && (!channels_.empty() || !marks_.empty())) {
    link_.open();
  }
  arm();
}

void ServerEventStream::pause(bool paused) noexcept {
  is_paused_ = paused;
  heard_us_ = steady_us();
  link_.set_reading(!paused);
}

void ServerEventStream::close() noexcept {
  link_.close();
  timer_.stop();
  channels_.clear();
  marks_.clear();
}

// ---- The connection ----------------------------------------------------------------

void ServerEventStream::write() noexcept {
  if (written_ == out_.size()) return;
  const iovec part = {out_.data() + written_, out_.size() - written_};
  written_ += link_.write(&part, 1);
  if (written_ < out_.size()) return;
  out_.clear();
  written_ = 0;
}

// Subscribes to all again, and asks for an answer behind that.
void ServerEventStream::on_up() noexcept {
  out_.clear();
  written_ = 0;
  try {
    for (const std::string& channel : channels_) append_command(out_, {"SUBSCRIBE", channel});
    append_ping(out_, last_number_ + 1);
  } catch (const std::bad_alloc&) {
    break_off(false);
    return;
  }
  asked_ = ++last_number_;
  heard_ = 0;
  heard_us_ = steady_us();
  link_.set_reading(!is_paused_);
  write();
  arm();
}

void ServerEventStream::on_down(const char*, bool is_refused) noexcept {
  if (was_heard_) is_gap_owed_ = true;
  if (is_refused) miss();
  arm();
}

void ServerEventStream::break_off(bool is_refused) noexcept {
  link_.drop();
  on_down(nullptr, is_refused);
}

void ServerEventStream::on_reply(const redisReply& reply) noexcept {
  heard_us_ = steady_us();
  if (reply.type == REDIS_REPLY_STRING) {
    on_pong(bytes_of(reply));
    return;
  }
  const bool is_array = reply.type == REDIS_REPLY_ARRAY;
  const std::string_view kind = is_array ? word_of(reply, 0) : std::string_view();
  if (kind == "message") {
    listener_.on_message(word_of(reply, 1), word_of(reply, 2));
  } else if (kind == "pong") {
    on_pong(word_of(reply, 1));
  } else if (kind != "subscribe" && kind != "unsubscribe") {
    break_off(reply.type == REDIS_REPLY_ERROR);  // it does not want this user to listen, say
  }
}

void ServerEventStream::on_pong(std::string_view text) noexcept {
  std::uint64_t number = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
  if (result.ec != std::errc() || number <= heard_ || number > asked_) {
    break_off(false);
    return;
  }
  heard_ = number;
  was_heard_ = true;
  if (is_gap_owed_) {
    is_gap_owed_ = false;
    listener_.on_gap();
  }
  tell_marks(number);
}

void ServerEventStream::tell_marks(std::uint64_t last) noexcept {
  while (!marks_.empty() && marks_.front().number <= last) {
    const std::uint64_t number = marks_.front().number;
    marks_.pop_front();
    listener_.on_mark(number);
  }
}

// Nobody is to wait any longer; what they miss they will be told of.
void ServerEventStream::miss() noexcept {
  if (marks_.empty()) return;
  is_gap_owed_ = true;
  tell_marks(last_number_);
}

// ---- Time --------------------------------------------------------------------------

std::int64_t ServerEventStream::due_us() const {
  if (!link_.is_open()) return INT64_MAX;
  if (link_.is_up()) return is_paused_ ? INT64_MAX : heard_us_ + timeout_us_;
  const bool is_waiting = !marks_.empty() && marks_.front().deadline_us != 0;
  return is_waiting ? marks_.front().deadline_us : INT64_MAX;
}

void ServerEventStream::arm() noexcept {
  const std::int64_t due = due_us();
  if (due == INT64_MAX || (timer_.is_running() && armed_us_ <= due)) return;
  armed_us_ = due;
  timer_.start(due - steady_us());
}

void ServerEventStream::on_time() noexcept {
  const std::int64_t due = due_us();
  const bool is_asking = link_.is_up() && asked_ != heard_;
  if (due > steady_us() || link_.has_more()) {
    arm();
  } else if (is_asking && due > looked_us_) {
    // The loop may have been away, and the answer be there already.
    looked_us_ = steady_us();
    armed_us_ = looked_us_;
    timer_.start(std::max(UvTimer::kSecondLook, looked_us_ - due));
  } else if (is_asking) {
    break_off(false);
  } else if (link_.is_up()) {
    ask();
    arm();
  } else {
    miss();
    arm();
  }
}

// Whether the server is there, while nothing happens.
void ServerEventStream::ask() noexcept {
  try {
    std::string bytes;
    append_ping(bytes, last_number_ + 1);
    queue(bytes);
  } catch (const std::bad_alloc&) {
    break_off(false);
    return;
  }
  asked_ = ++last_number_;
  heard_us_ = steady_us();
  write();
}

}  // namespace

std::unique_ptr<EventStream> make_server_stream(const Address& address, uv_loop_s* loop,
                                                EventStream::Listener& listener) {
  return std::make_unique<ServerEventStream>(address, loop, listener);
}

std::unique_ptr<EventStream> make_event_stream(const Address& address, uv_loop_s* loop,
                                               EventStream::Listener& listener) {
  return address.kind == Address::Kind::kCluster ? make_cluster_stream(address, loop, listener)
                                                 : make_server_stream(address, loop, listener);
}

}  // namespace vu::store
