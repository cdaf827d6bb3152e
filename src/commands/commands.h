// The commands of VuMom, one file per family. Each reads as its steps: bind, look up the
// reply method, build the context, convert, call the store, map the status. The order of
// the statements is the order in which a caller sees errors and side effects, so there is
// one fallible conversion per statement.
#pragma once

#include <vector>

#include "client/command.h"

namespace vu_mom {

std::vector<PyMethodDef> key_methods();
std::vector<PyMethodDef> hash_methods();
std::vector<PyMethodDef> scan_methods();
std::vector<PyMethodDef> list_methods();
std::vector<PyMethodDef> set_methods();
std::vector<PyMethodDef> sorted_set_methods();
std::vector<PyMethodDef> expiry_methods();
std::vector<PyMethodDef> subscription_methods();
std::vector<PyMethodDef> publishing_methods();

// Those of all families and of the client itself, ended by an empty entry; static.
PyMethodDef* all_methods();

}  // namespace vu_mom
