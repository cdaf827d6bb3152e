// Values of plain fields, which are read and written where they lie.
#pragma once

#include "message.h"
#include "plain_fields.h"

namespace vu {

// The same as get_scalar and set_scalar for the field of the slot.
py::Owned get_plain(const NativeMessage& message, const plain::Slot& slot);

// Checks and converts a value and sets the field. TypeError or ValueError, with nothing
// changed.
void set_plain(MessageObject& message, const plain::Slot& slot, py::Borrowed value);

}  // namespace vu
