// The picture of a store for a person who debugs.
#include <cinttypes>
#include <cstddef>

#include "store.h"

namespace vu::store {

void Store::show(std::FILE* out) const {
  std::fprintf(out, "store embedded:%s, %zu handles, %zu lifetimes, %zu bytes of objects\n",
               name_.c_str(), sessions_.size(), lifetimes_.size(), slab_.bytes());
  for (const auto& [where, shelf] : shelves_) {
    std::size_t objects[5] = {};
    std::size_t elements[5] = {};
    shelf->for_each({}, [&, on = shelf.get()](Cell cell) {
      const Object object = on->object(cell);
      const auto kind = static_cast<std::size_t>(object.kind());
      ++objects[kind];
      if (object.kind() != Kind::kSingle) elements[kind] += object.body()->size();
      return true;
    });
    if (shelf->size() == 0 && shelf->watchers.empty()) continue;
    std::fprintf(out, "  db %" PRId32 " %s: %zu objects, %zu bytes of index, %zu subscriptions\n",
                 shelf->db(), shelf->type_name().c_str(), shelf->size(), shelf->index_bytes(),
                 shelf->watchers.size());
    const char* const names[5] = {"single values", "hashes", "lists", "sets", "sorted sets"};
    const char* const inside[5] = {"", "fields", "elements", "members", "members"};
    for (std::size_t kind = 0; kind < 5; ++kind) {
      if (objects[kind] == 0) continue;
      std::fprintf(out, "    %zu %s", objects[kind], names[kind]);
      if (kind != 0) std::fprintf(out, " with %zu %s", elements[kind], inside[kind]);
      std::fprintf(out, "\n");
    }
  }
}

}  // namespace vu::store
