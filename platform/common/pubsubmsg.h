// PubSubMsg: what arrived, a reply or an event.
#pragma once

#include "python/reference.h"

namespace vu {

// Once, at import.
void add_pubsubmsg(py::Borrowed module);

}  // namespace vu
