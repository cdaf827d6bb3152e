// Subscriptions that begin and end between two commands.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "../subscription.h"

namespace vu::store {

class Channel;

// A subscription of a handle, at the channel that it hears.
struct RemoteSubscription : Subscription {
  std::shared_ptr<Channel> channel;
  bool is_active = false;  // its barrier was passed
  bool is_ending = false;  // an unsubscribe waits for its turn
};

// What waits until all before it has its outcome, and keeps waiting what is behind it.
struct Barrier {
  struct Step {
    std::shared_ptr<RemoteSubscription> subscription;
    bool begins;  // else it ends
  };

  std::vector<Step> steps;
  bool is_asked = false;   // the mark was asked for
  std::uint64_t mark = 0;  // that says that the channels have caught up
};

}  // namespace vu::store
