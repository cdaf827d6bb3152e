// Where things stand in a server: names of keys, as docs/server.md describes them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "../type_info.h"
#include "protocol.h"

namespace vu::store {

// "DB:TYPE", the middle of the names of keys and channels.
std::string shelf_name(std::int32_t db, const TypeInfo& type);

// Room that is enough for most keys of objects.
inline constexpr std::size_t kUsualKey = 200;

// Puts the key of an object into `key`, which is empty. Its companions have the same with "!meta",
// "!live" and "!fields".
void make_object_key(std::string& key, const Place& place, std::int32_t db, const TypeInfo& type,
                     std::string_view identity);

// The keys that belong to a partition: "PREFIX:{PARTITION}!NAME".
std::string partition_key(const Place& place, unsigned partition, std::string_view name);

}  // namespace vu::store
