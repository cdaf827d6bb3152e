// The numbers of the field options declared in vu/options.proto. The runtime and the
// store read them from descriptors by number, without generated code.
#pragma once

namespace vu {

inline constexpr int kKeyOption = 50801;      // (vu.key) = POSITION, from 1
inline constexpr int kCounterOption = 50802;  // (vu.counter) = true

}  // namespace vu
