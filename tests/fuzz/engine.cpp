// The embedded engine through the C interface, against the model.
#include "engine_run.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  vu::fuzz::Input input(data, size);
  vu::fuzz::Run(input).all();
  return 0;
}
