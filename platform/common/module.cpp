// The extension module vu_mom_common: what arrives from the store, as Python objects.
#include "hash_result.h"
#include "messages_result.h"
#include "pubsubmsg.h"
#include "python/error.h"
#include "value_result.h"

namespace {

constexpr const char* kDoc =
    "What arrives from the object store.\n\n"
    "PubSubMsg is the reply or event, its .result the value that came with it: a message,\n"
    "one of the result classes here, or None. The store's binding makes all of them; an\n"
    "application reads and keeps them, and makes its own with the class method `of`.";

PyModuleDef definition = {
    PyModuleDef_HEAD_INIT, "vu_mom_common", kDoc, -1, nullptr, nullptr, nullptr, nullptr, nullptr};

}  // namespace

VU_MODULE_INIT PyInit_vu_mom_common() {
  return py::enter([] {
    py::Owned module = py::checked(PyModule_Create(&definition));
    vu::add_pubsubmsg(module);
    vu::add_value_results(module);
    vu::add_messages_results(module);
    vu::add_hash_result(module);
    return module;
  });
}
