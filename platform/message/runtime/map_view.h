// Map fields as dicts: vu_message.ScalarMap and vu_message.MessageMap.
//
// Like a view of a repeated field, a view of a map holds no contents of its own. Its keys
// come in ascending order.
#pragma once

#include "message.h"

namespace vu {

// The view of a map field: always the same one while Python holds it.
py::Owned map_view_of(MessageObject& message, Field& field);

// Replaces the entries by those of a mapping; `place` is the field's.
void assign_map(MessageObject& message, Field& field, const Place& place, py::Borrowed values);

// Makes the two types ready and adds them to `module`.
void add_map_types(py::Borrowed module);

}  // namespace vu
