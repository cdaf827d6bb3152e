#include "commands/commands.h"

namespace vu_mom {

PyMethodDef* all_methods() {
  static std::vector<PyMethodDef> methods;
  if (!methods.empty()) return methods.data();  // an earlier import got as far as this
  for (const auto& family : {client_methods(), key_methods(), hash_methods(), scan_methods(),
                             list_methods(), set_methods(), sorted_set_methods(), expiry_methods(),
                             subscription_methods(), publishing_methods()}) {
    methods.insert(methods.end(), family.begin(), family.end());
  }
  methods.push_back({nullptr, nullptr, 0, nullptr});
  return methods.data();
}

}  // namespace vu_mom
