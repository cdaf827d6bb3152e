// Reading and setting whole fields: what attributes and keyword arguments do.
#pragma once

#include "message.h"
#include "place.h"

namespace vu {

extern PyTypeObject field_type;  // vu_message.Field

// The value of the field: a plain value, the wrapper of its message, or a view.
py::Owned get_field(MessageObject& message, Field& field);

// Gives the field a value. Messages are copied, from a wrapper or a dict of their fields;
// repeated fields take any iterable, maps any mapping. All of the value is checked before
// anything is changed. TypeError or ValueError naming the field by its path, which begins with
// the place that the message is made for, if it is.
void set_field(MessageObject& message, Field& field, py::Borrowed value,
               const Place* around = nullptr);

// Sets the field of that name; None leaves it alone.
void set_named(MessageObject& message, py::Borrowed name, py::Borrowed value,
               const Place* around = nullptr);

// Sets the fields that `values`, a dict, names; None leaves a field alone.
void set_fields(MessageObject& message, py::Borrowed values, const Place* around = nullptr);

// A native message made from a wrapper of that type or a dict, for use at a place.
std::unique_ptr<NativeMessage> to_native(MessageInfo& info, const Place& place, py::Borrowed value);

// A native message with the fields that `values` (a dict, or null for none) names.
std::unique_ptr<NativeMessage> native_of(MessageInfo& info, const Place& place,
                                         py::Borrowed values);

// Makes the type ready and adds it to `module`.
void add_field_type(py::Borrowed module);

}  // namespace vu
