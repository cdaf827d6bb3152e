#include "delivered.h"

namespace vu {
namespace {

// Addresses are signed integers. One that no pointer can hold is never being delivered.
bool fits(py::Borrowed number, std::intptr_t& address) {
  int overflow = 0;
  const long long wide = PyLong_AsLongLongAndOverflow(number.get(), &overflow);
  address = static_cast<std::intptr_t>(wide);
  return overflow == 0 && address == wide;
}

template <typename Native>
const Native& delivered(const Callee& callee, const char* argument, py::Borrowed number,
                        int (*is_delivered)(std::intptr_t), const char* what) {
  if (PyLong_Check(number.get()) == 0) {
    raise_wrong_type(callee, argument, "an integer address", number);
  }
  std::intptr_t address = 0;
  if (!fits(number, address) || is_delivered(address) == 0) {
    py::raise(PyExc_ValueError, "%.100s() argument '%s': %S is not the address of %s",
              short_name(callee.type), argument, number.get(), what);
  }
  // NOLINTNEXTLINE(performance-no-int-to-ptr): addresses come as integers
  return *reinterpret_cast<const Native*>(address);
}

const char* kind_name(std::int32_t kind) {
  switch (kind) {
    case VU_PLATFORM_PAYLOAD_INTEGER:
      return "an integer";
    case VU_PLATFORM_PAYLOAD_SCORE:
      return "a score";
    case VU_PLATFORM_PAYLOAD_HASH:
      return "a hash";
    case VU_PLATFORM_PAYLOAD_MESSAGES:
      return "messages";
    case VU_PLATFORM_PAYLOAD_SCORED:
      return "messages with scores";
    default:
      return "something unknown";
  }
}

}  // namespace

const vu_mom_reply& delivered_record(const Callee& callee, py::Borrowed address) {
  return delivered<vu_mom_reply>(callee, "record", address, vu_platform_is_record,
                                 "the reply being delivered");
}

const vu_platform_payload& delivered_payload(const Callee& callee, py::Borrowed address,
                                             vu_platform_payload_kind kind) {
  const auto& payload = delivered<vu_platform_payload>(
      callee, "data", address, vu_platform_is_payload, "the data of the reply being delivered");
  if (payload.kind != kind) {
    py::raise(PyExc_ValueError, "%.100s() argument 'data': the reply carries %s, not %s",
              short_name(callee.type), kind_name(payload.kind), kind_name(kind));
  }
  return payload;
}

py::Owned make_message(py::Borrowed cls, vu_mom_message address) {
  static_assert(sizeof(address) == sizeof(Py_ssize_t));
  const py::Owned number = py::checked(PyLong_FromSsize_t(address));
  PyObject* arguments[] = {nullptr, number.get()};
  return py::checked(py::call_vector(cls.get(), arguments + 1, 1));
}

}  // namespace vu
