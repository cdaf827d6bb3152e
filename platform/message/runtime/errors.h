// The module's own exceptions.
#pragma once

#include "python/error.h"

namespace vu {

extern PyObject* encode_error;  // vu_message.EncodeError, a ValueError
extern PyObject* decode_error;  // vu_message.DecodeError, a ValueError

}  // namespace vu
