// Whether two messages say the same.
#pragma once

#include "message.h"

namespace vu {

// As MessageDifferencer::Equals of libprotobuf tells it: fields that one message carries, the
// other carries with an equal value (a NaN equals nothing). Requires: both are of type `info`.
bool are_equal(MessageInfo& info, const NativeMessage& one, const NativeMessage& other);

}  // namespace vu
