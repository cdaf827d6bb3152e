// vu_message.add_file and vu_message.File: how generated modules bring their descriptors.
#pragma once

#include "descriptors.h"

namespace vu {

extern PyMethodDef file_functions[];  // add_file, message_class

// The message type of that full name, an argument of `function`. KeyError: it is not known.
MessageInfo& known_type(const char* function, py::Borrowed full_name);

void add_file_type(py::Borrowed module);

}  // namespace vu
