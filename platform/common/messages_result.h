// Results that are messages in an order, alone or with a score each.
#pragma once

#include "python/reference.h"

namespace vu {

// MessagesResult and ScoredResult, the abstract bases, and LrangeResult, ZrangeResult, … .
// Registers the bases with collections.abc.Sequence. Once, at import.
void add_messages_results(py::Borrowed module);

}  // namespace vu
