// Repeated fields as lists: vu_message.RepeatedScalars and vu_message.RepeatedMessages.
//
// A view holds no contents of its own: it is its message and a field of it, and reads and
// writes the native message each time.
#pragma once

#include "message.h"

namespace vu {

// The view of a repeated field: always the same one while Python holds it.
py::Owned repeated_view_of(MessageObject& message, Field& field);

// Replaces the elements by those of an iterable; `place` is the field's.
void assign_repeated(MessageObject& message, Field& field, const Place& place, py::Borrowed values);

// Makes the two types ready and adds them to `module`.
void add_repeated_types(py::Borrowed module);

}  // namespace vu
