#include "module/imported_types.h"

#include "python/error.h"
#include "vu_mom_types.h"

namespace vu_mom {

ImportedTypes types;

namespace {

enum class SizeCheck {
  kExact,         // any other size is an error
  kWarnIfLarger,  // a larger size is a warning, a smaller one an error
};

struct Import {
  const char* module;
  const char* name;
  std::size_t size;
  PyTypeObject** type;
  SizeCheck check = SizeCheck::kExact;
};

constexpr std::size_t kValue = sizeof(ValueResultObject);
constexpr std::size_t kMessages = sizeof(MessagesResultObject);

const Import kImports[] = {
    {"builtins", "type", sizeof(PyHeapTypeObject), &types.type, SizeCheck::kWarnIfLarger},
    {"vu_thread", "Thread", sizeof(ThreadObject), &types.Thread},
    {"vu_thread", "VuThreadMaster", sizeof(VuThreadMasterObject), &types.VuThreadMaster},
    {"vu_global", "VuGlobal", sizeof(VuGlobalObject), &types.VuGlobal},
    {"vu_mom_common", "PubSubMsg", sizeof(PubSubMsgObject), &types.PubSubMsg},
    {"vu_mom_common", "HashResult", kMessages, &types.HashResult},
    {"vu_mom_common", "SetResult", kMessages, &types.SetResult},
    {"vu_mom_common", "ListResult", kMessages, &types.ListResult},
    {"vu_mom_common", "SortedsetResult", kMessages, &types.SortedsetResult},
    {"vu_mom_common", "GetResult", kValue, &types.GetResult},
    {"vu_mom_common", "IncrResult", kValue, &types.IncrResult},
    {"vu_mom_common", "SetnxResult", kValue, &types.SetnxResult},
    {"vu_mom_common", "SmembersResult", kMessages, &types.SmembersResult},
    {"vu_mom_common", "LlenResult", kValue, &types.LlenResult},
    {"vu_mom_common", "LrangeResult", kMessages, &types.LrangeResult},
    {"vu_mom_common", "LinsertResult", kValue, &types.LinsertResult},
    {"vu_mom_common", "LminsertResult", kValue, &types.LminsertResult},
    {"vu_mom_common", "LmremResult", kValue, &types.LmremResult},
    {"vu_mom_common", "LsetResult", kValue, &types.LsetResult},
    {"vu_mom_common", "SaveResult", kValue, &types.SaveResult},
    {"vu_mom_common", "ZcardResult", kValue, &types.ZcardResult},
    {"vu_mom_common", "ZrankResult", kValue, &types.ZrankResult},
    {"vu_mom_common", "ZscoreResult", kValue, &types.ZscoreResult},
    {"vu_mom_common", "ZcountResult", kValue, &types.ZcountResult},
    {"vu_mom_common", "ZrangeResult", kMessages, &types.ZrangeResult},
    {"vu_mom_common", "ZrangebyscoreResult", kMessages, &types.ZrangebyscoreResult},
    {"vu_mom_common", "ScardResult", kValue, &types.ScardResult},
    {"vu_mom_common", "SismemberResult", kValue, &types.SismemberResult},
};

// Both texts give the actual size as the expected one, and the other way round. They
// always have, and people search for them.
void check_size(const Import& import, const PyTypeObject& type) {
  const Py_ssize_t actual = type.tp_basicsize;
  const Py_ssize_t built_for = static_cast<Py_ssize_t>(import.size);
  if (actual == built_for) return;
  if (import.check == SizeCheck::kWarnIfLarger && actual > built_for) {
    py::checked(PyErr_WarnFormat(nullptr, 0,
                                 "%s.%s size changed, may indicate binary incompatibility. "
                                 "Expected %zd, got %zd",
                                 import.module, import.name, actual, built_for));
    return;
  }
  py::raise(PyExc_ValueError,
            "%.200s.%.200s has the wrong size, try recompiling. Expected %zd, got %zd",
            import.module, import.name, actual, built_for);
}

}  // namespace

void import_types() {
  for (const Import& import : kImports) {
    const py::Owned module = py::checked(PyImport_ImportModule(import.module));
    py::Owned type = py::checked(PyObject_GetAttrString(module.get(), import.name));
    if (!PyType_Check(type.get())) {
      py::raise(PyExc_TypeError, "%.200s.%.200s is not a type object", import.module, import.name);
    }
    check_size(import, *reinterpret_cast<PyTypeObject*>(type.get()));
    const py::Owned previous = py::Owned::steal(reinterpret_cast<PyObject*>(*import.type));
    *import.type = reinterpret_cast<PyTypeObject*>(type.release());
  }
}

}  // namespace vu_mom
