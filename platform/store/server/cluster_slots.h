// Hash slots of a cluster, and who has them.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "address.h"

struct redisReply;

namespace vu::store {

// The slot of all keys with this partition in braces.
unsigned slot_of_partition(unsigned partition);

struct SlotRange {
  unsigned first = 0;
  unsigned last = 0;
  Endpoint master;
};

// What CLUSTER SLOTS says. A member that does not know its own name has the host of
// `asked`. False where it cannot be read. Throws std::bad_alloc.
bool read_slots(const redisReply& reply, const Endpoint& asked, std::vector<SlotRange>& ranges);

// The place in "MOVED 3999 127.0.0.1:6381" and "ASK ...", likewise.
bool read_redirection(std::string_view text, const Endpoint& asked, Endpoint& place);

}  // namespace vu::store
