// The addresses that the library accepts: registered messages, and what it is
// delivering at the moment.
#pragma once

#include <cstdint>

namespace vu::store {

bool is_live(std::intptr_t address);

}  // namespace vu::store
