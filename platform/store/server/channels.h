// The channels of a store that somebody in this process listens to, and who it is.
#pragma once

#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "../clock.h"
#include "barrier.h"
#include "event_stream.h"
#include "protocol.h"

namespace vu::store {

// One channel: those who watch the objects of one type below one prefix of key
// components, whole objects or single fields.
class Channel {
 public:
  using Group = std::vector<std::shared_ptr<RemoteSubscription>>;

  std::string name;
  std::int32_t db = 0;
  const TypeInfo* type = nullptr;
  std::map<std::uint32_t, Group> by_tag;  // those that wait for their barrier too
};

class Channels {
 public:
  Channels(const Clock& clock, EventStream& stream) : clock_(clock), stream_(stream) {}
  Channels(const Channels&) = delete;
  Channels& operator=(const Channels&) = delete;
  ~Channels() = default;

  // Adds a subscription, which hears nothing before its barrier. Throws std::bad_alloc
  // with nothing changed.
  void add(const Place& place, const std::shared_ptr<RemoteSubscription>& subscription);
  // Removes it; it hears nothing any more.
  void remove(RemoteSubscription& subscription) noexcept;

  // Asks the stream for the channels of the barrier, and for its mark. Throws
  // std::bad_alloc; then it may be called again.
  void ask(Barrier& barrier);
  // Carries the barrier out, in the order of its steps.
  void pass(const Barrier& barrier) noexcept;

  // Hands a message on to the channel's subscriptions.
  void on_message(std::string_view name, std::string_view message) noexcept;
  // Tells every active subscription that events may be missing.
  void tell_gap() noexcept;
  // The same again for those who could not be told for lack of memory.
  void repeat_gap() noexcept;

  bool empty() const { return by_name_.empty(); }
  void show(std::FILE* out) const;

 private:
  void hand_on(const Channel& channel, std::string_view message);
  void tell_gap_once();

  struct Hash {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const {
      return std::hash<std::string_view>()(text);
    }
  };

  const Clock& clock_;
  EventStream& stream_;
  std::unordered_map<std::string, std::shared_ptr<Channel>, Hash, std::equal_to<>> by_name_;
  bool owes_gap_ = false;
};

}  // namespace vu::store
