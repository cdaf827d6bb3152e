// Messages as JSON: the methods ToJson and FromJson of vu_message.Message.
#pragma once

#include "message.h"

namespace vu {

PyObject* to_json(PyObject* self, PyObject* arguments, PyObject* keywords);
PyObject* from_json(PyObject* cls, PyObject* arguments, PyObject* keywords);

extern const char* const kToJsonDoc;
extern const char* const kFromJsonDoc;

}  // namespace vu
