// What libprotobuf's JSON leaves out, or says otherwise than it is, without a word: it is refused
// here.
#pragma once

#include "message.h"

namespace vu {

// Groups. Raises `error`, an exception class, naming the field.
void check_groups(PyObject* error, const MessageInfo& info);

// Defaults of proto2 that are bytes, or floats that are no numbers. EncodeError naming the field.
void check_defaults(const MessageInfo& info);

// Texts of proto2 that are not UTF-8, in a serialised message. EncodeError naming the field.
void check_texts(const MessageInfo& info, const std::string& bytes);

}  // namespace vu
