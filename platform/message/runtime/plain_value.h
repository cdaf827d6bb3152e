// Values of plain fields, which are read and written where they lie.
#pragma once

#include "message.h"
#include "place.h"
#include "plain_fields.h"

namespace vu {

// The same as get_scalar and set_scalar for the field of the slot.
py::Owned get_plain(const NativeMessage& message, const plain::Slot& slot);

// Checks and converts a value and sets the field. TypeError or ValueError naming the place,
// with nothing changed.
void set_plain(MessageObject& message, const plain::Slot& slot, const Place& place,
               py::Borrowed value);

}  // namespace vu
