// Messages from a server's channels, over a connection of their own. Not to be destroyed
// from inside its listener's functions.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "address.h"

struct uv_loop_s;

namespace vu::store {

class EventStream {
 public:
  // Told on the loop's thread, never from inside a call of the stream.
  class Listener {
   public:
    virtual void on_message(std::string_view channel, std::string_view message) noexcept = 0;
    // Everything sent before the call of mark() that gave `mark` has been answered, and
    // every message of before then has been told. Where there is no connection within the
    // command time-out, or the server lets nobody in, nobody waits any longer: the mark is
    // told, and on_gap will be.
    virtual void on_mark(std::uint64_t mark) noexcept = 0;
    // The connection broke, or could not be made in time, and is back, subscribed as
    // before: messages may be missing.
    virtual void on_gap() noexcept = 0;
    // The next flush has something to do.
    virtual void on_stream_wake() noexcept = 0;

   protected:
    ~Listener() = default;
  };

  virtual ~EventStream() = default;

  // Subscribing twice is harmless. What is subscribed is subscribed again after a
  // connection broke; on_gap is told then, and marks that were lost are told after it.
  // Throws std::bad_alloc with nothing changed. Messages of a channel may be told until the
  // mark behind its end.
  virtual void subscribe(const std::string& channel) = 0;
  virtual void unsubscribe(const std::string& channel) noexcept = 0;

  // Asks for on_mark. Marks ascend. Connects at the first use.
  virtual std::uint64_t mark() = 0;

  // How many connections were lost and are back, since the beginning.
  virtual std::uint64_t reconnects() const = 0;

  virtual void flush() noexcept = 0;

  // While paused it reads nothing, so that messages wait in the server; where they are too
  // many for that, it ends the connection.
  virtual void pause(bool paused) noexcept = 0;

  virtual void close() noexcept = 0;
};

std::unique_ptr<EventStream> make_event_stream(const Address& address, uv_loop_s* loop,
                                               EventStream::Listener& listener);

}  // namespace vu::store
