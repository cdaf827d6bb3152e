// The runtime of message wrappers: bytes from outside, fields, lists, maps, parts, in any
// order, on the message types of the platform's tests.
#include <vector>

#include "input.h"
#include "interpreter.h"
#include "message_play.h"

namespace vu::fuzz {

namespace {

const std::vector<PyObject*>& classes() {
  static const auto* const all = [] {
    auto* const made = new std::vector<PyObject*>();
    const auto add = [&](const char* module, std::initializer_list<const char*> names) {
      for (const char* const name : names) made->push_back(import_object(module, name).release());
    };
    add("vu_test_tree_vu", {"Node"});
    add("vu_test_scalars_vu", {"Maps", "Repeated", "Single", "Optional", "Keyed"});
    add("vu_test_proto2_vu", {"Required", "Defaults", "WithGroup"});
    return made;
  }();
  return *all;
}

}  // namespace

}  // namespace vu::fuzz

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  vu::fuzz::start_interpreter();
  vu::fuzz::classes();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  vu::fuzz::Input input(data, size);
  vu::fuzz::MessagePlay(input, vu::fuzz::classes()).all();
  return 0;
}
