// vu_message.add_file and vu_message.File: how generated modules bring their descriptors.
#pragma once

#include "python/error.h"

namespace vu {

extern PyMethodDef file_functions[];  // add_file, message_class

void add_file_type(py::Borrowed module);

}  // namespace vu
