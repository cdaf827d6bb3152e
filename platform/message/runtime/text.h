// Messages as readable text.
#pragma once

#include "message.h"

namespace vu {

// "demo.Counter(name='eth0', hits=3)": the fields that are set, enum values by name.
py::Owned readable(MessageObject& message);

}  // namespace vu
