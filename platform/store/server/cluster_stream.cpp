#include "cluster_stream.h"

#include <hiredis/hiredis.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <deque>
#include <new>
#include <string>
#include <utility>

#include "cluster_router.h"
#include "protocol.h"

namespace vu::store {

namespace {

// A channel that nobody else has.
std::string own_channel(const Address& address) {
  return address.prefix + "!mark:" + std::to_string(getpid()) + ':' + std::to_string(uv_hrtime());
}

class ClusterEventStream final : public EventStream,
                                 private EventStream::Listener,
                                 private Router::Listener {
 public:
  ClusterEventStream(const Address& address, uv_loop_t* loop, EventStream::Listener& listener)
      : listener_(listener),
        channel_(own_channel(address)),
        timeout_us_(address.command_timeout_us),
        stream_(make_server_stream(address, loop, *this)),
        router_(address, loop, *this),
        timer_(
            loop, [](void* self) { static_cast<ClusterEventStream*>(self)->on_time(); }, this) {}

  void subscribe(const std::string& channel) override { stream_->subscribe(channel); }
  void unsubscribe(const std::string& channel) noexcept override { stream_->unsubscribe(channel); }
  std::uint64_t mark() override;
  void flush() noexcept override;
  void pause(bool paused) noexcept override { stream_->pause(paused); }
  std::uint64_t reconnects() const override { return stream_->reconnects() + router_.reconnects(); }
  void close() noexcept override;

 private:
  // First the connection for events has to have caught up, then all masters.
  struct Mark {
    std::uint64_t number = 0;
    std::int64_t deadline_us = 0;
    bool is_published = false;
    unsigned left = 0;  // messages of it that have not come back
  };

  void on_message(std::string_view channel, std::string_view message) noexcept override;
  void on_mark(std::uint64_t number) noexcept override;
  void on_gap() noexcept override;
  void on_stream_wake() noexcept override { listener_.on_stream_wake(); }
  void on_outcome(void* ticket, const Outcome& outcome) noexcept override;
  void on_router_wake() noexcept override { listener_.on_stream_wake(); }

  Mark* find(std::uint64_t number);
  void publish(Mark& mark);
  void tell() noexcept;
  void on_time() noexcept;

  EventStream::Listener& listener_;
  const std::string channel_;
  const std::int64_t timeout_us_;
  const std::unique_ptr<EventStream> stream_;
  ClusterRouter router_;
  UvTimer timer_;
  std::deque<Mark> marks_;
  bool is_gap_owed_ = false;
  bool is_closed_ = false;
};

std::uint64_t ClusterEventStream::mark() {
  stream_->subscribe(channel_);
  marks_.emplace_back();
  try {
    marks_.back().number = stream_->mark();
  } catch (...) {
    marks_.pop_back();
    throw;
  }
  return marks_.back().number;
}

void ClusterEventStream::flush() noexcept {
  const std::int64_t now_us = steady_us();
  for (Mark& mark : marks_) {
    if (mark.deadline_us == 0) mark.deadline_us = now_us + timeout_us_;
  }
  if (!marks_.empty() && !timer_.is_running()) timer_.start(marks_.front().deadline_us - now_us);
  stream_->flush();
  router_.flush();
}

void ClusterEventStream::close() noexcept {
  is_closed_ = true;
  timer_.stop();
  marks_.clear();
  stream_->close();
  router_.close();
}

ClusterEventStream::Mark* ClusterEventStream::find(std::uint64_t number) {
  const auto found = std::find_if(marks_.begin(), marks_.end(),
                                  [=](const Mark& mark) { return mark.number == number; });
  return found == marks_.end() ? nullptr : &*found;
}

// The key says to whom: a member that the partition has moved away from says where.
void ClusterEventStream::publish(Mark& mark) {
  mark.is_published = true;
  const std::string text = std::to_string(mark.number);
  for (unsigned i = 0; i < kPartitions; ++i) {
    const std::string key = '{' + std::to_string(i) + '}';
    std::string look;
    std::string command;
    append_command(look, {"EXISTS", key});
    append_command(command, {"PUBLISH", channel_, text});
    router_.send(i, std::move(look), true, nullptr);
    router_.send(i, std::move(command), false, this);  // any ticket that is not null
    ++mark.left;
  }
}

void ClusterEventStream::on_mark(std::uint64_t number) noexcept {
  Mark* const mark = find(number);
  if (mark == nullptr) return;
  try {
    publish(*mark);
  } catch (const std::bad_alloc&) {
    is_gap_owed_ = true;
    mark->left = 0;
  }
  router_.flush();
  tell();
}

void ClusterEventStream::on_message(std::string_view channel, std::string_view message) noexcept {
  if (channel != channel_) {
    listener_.on_message(channel, message);
    return;
  }
  std::uint64_t number = 0;
  std::from_chars(message.data(), message.data() + message.size(), number);
  Mark* const mark = find(number);
  if (mark == nullptr || mark->left == 0) return;
  --mark->left;
  tell();
}

// What was published and not heard yet may never come: everything starts from here.
void ClusterEventStream::on_gap() noexcept {
  is_gap_owed_ = false;
  listener_.on_gap();
  for (Mark& mark : marks_) {
    if (mark.is_published) mark.left = 0;
  }
  tell();
}

// Where a mark could not be published, nobody is to wait for it.
void ClusterEventStream::on_outcome(void* ticket, const Outcome& outcome) noexcept {
  if (is_closed_ || ticket == nullptr) return;
  const bool is_done =
      outcome.kind == Outcome::Kind::kReply && outcome.reply->type == REDIS_REPLY_INTEGER;
  if (is_done) return;
  is_gap_owed_ = true;
  for (Mark& mark : marks_) {
    if (mark.is_published) mark.left = 0;
  }
  tell();
}

void ClusterEventStream::tell() noexcept {
  while (!marks_.empty() && marks_.front().is_published && marks_.front().left == 0) {
    const std::uint64_t number = marks_.front().number;
    marks_.pop_front();
    listener_.on_mark(number);
  }
  if (is_gap_owed_ && marks_.empty()) {
    is_gap_owed_ = false;
    listener_.on_gap();
  }
}

// The bus between the members is broken, or slow.
void ClusterEventStream::on_time() noexcept {
  const std::int64_t now_us = steady_us();
  for (Mark& mark : marks_) {
    if (!mark.is_published || mark.deadline_us == 0 || mark.deadline_us > now_us) continue;
    is_gap_owed_ = true;
    mark.left = 0;
  }
  tell();
  if (!marks_.empty()) timer_.start(std::max<std::int64_t>(timeout_us_ / 4, 1));
}

}  // namespace

std::unique_ptr<EventStream> make_cluster_stream(const Address& address, uv_loop_s* loop,
                                                 EventStream::Listener& listener) {
  return std::make_unique<ClusterEventStream>(address, loop, listener);
}

}  // namespace vu::store
