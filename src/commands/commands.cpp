#include "commands/commands.h"

#include <utility>

namespace vu_mom {

PyMethodDef* all_methods() {
  static std::vector<PyMethodDef> all;
  if (!all.empty()) return all.data();  // an earlier import got as far as this
  std::vector<PyMethodDef> methods;
  for (const auto& family : {client_methods(), key_methods(), hash_methods(), scan_methods(),
                             list_methods(), set_methods(), sorted_set_methods(), expiry_methods(),
                             subscription_methods(), publishing_methods()}) {
    methods.insert(methods.end(), family.begin(), family.end());
  }
  methods.push_back({nullptr, nullptr, 0, nullptr});
  all = std::move(methods);
  return all.data();
}

}  // namespace vu_mom
