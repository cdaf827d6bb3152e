// What the store is delivering while a result object is made from it.
//
// Results are made from bare addresses. These functions are the only place that follows
// one, and only after the store has said that it is delivering what is there.
#pragma once

#include "arguments.h"
#include "vu_platform.h"

namespace vu {

// The record at `address`, an int. TypeError, ValueError. Valid until the delivery ends.
const vu_mom_reply& delivered_record(const Callee& callee, py::Borrowed address);

// The payload at `address`, an int, which must be of `kind`. TypeError, ValueError.
// Valid until the delivery ends.
const vu_platform_payload& delivered_payload(const Callee& callee, py::Borrowed address,
                                             vu_platform_payload_kind kind);

// A native message as Python sees it: cls(address).
py::Owned make_message(py::Borrowed cls, vu_mom_message address);

}  // namespace vu
