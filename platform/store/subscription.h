// Who receives: the callback of a request, and a subscription with its own.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "type_info.h"
#include "vu_mom_impl.h"

namespace vu::store {

class EndDelivery;
class Session;

// A callback with what was given for it. Messages are made of `type`.
struct Receiver {
  vu_mom_reply_cb reply = nullptr;
  vu_mom_stream_cb stream = nullptr;
  void* privdata = nullptr;
  const TypeInfo* type = nullptr;

  bool wanted() const { return reply != nullptr || stream != nullptr; }
};

struct Subscription {
  Receiver receiver;
  Session* session = nullptr;  // whose queue its events go to
  std::uint64_t number = 0;    // of the session's subscriptions
  std::int32_t db = 0;
  std::string prefix;     // the leading key components, as identity bytes
  std::uint32_t tag = 0;  // the field; 0: the whole object
  // Its last delivery, made with the subscription so that ending cannot fail. Taken
  // from here when the subscription ends.
  std::unique_ptr<EndDelivery> end;

  Subscription();
  Subscription(const Subscription&) = delete;
  Subscription& operator=(const Subscription&) = delete;
  ~Subscription();
};

}  // namespace vu::store
