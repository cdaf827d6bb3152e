// A request on its way, and its reply.
#pragma once

#include <memory>
#include <string>

#include "../clock.h"
#include "../delivery.h"
#include "../recycled.h"
#include "../request.h"
#include "reply_queue.h"

namespace vu::store {

class RequestErrand final : public PlacedErrand, public Recycled<RequestErrand> {
 public:
  // `parts` commands carry the request out, which is taken over. Throws std::bad_alloc.
  RequestErrand(const Clock& clock, RequestHead& request, unsigned parts);

  void finish(const Outcome& outcome) noexcept override;
  // The reply to what no server needs to be asked. Requires: has its place.
  void finish_with(std::int64_t integer) noexcept;

 private:
  // What the parts so far have said.
  struct Merged {
    Notice last;
    ByteList identities;
    bool is_refused = false;  // by a part, which is an error if no other acted
    std::string refusal;
  };

  std::unique_ptr<Delivery> complete(const char* reason) noexcept override;
  void take(const Outcome& outcome);
  void merge(const Outcome& outcome);
  void fill_merged();
  // Without the identity, which the callers add.
  void describe(const Outcome& outcome, Notice& notice, ByteList& identities);

  const Clock& clock_;
  RequestHead request_;
  unsigned parts_left_;
  bool is_short_of_memory_ = false;
  std::unique_ptr<LevelDelivery> delivery_;  // null: nobody waits for the reply
  std::unique_ptr<Merged> merged_;           // where there are several parts
};

}  // namespace vu::store
