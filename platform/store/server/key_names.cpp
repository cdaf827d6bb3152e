#include "key_names.h"

#include "command_text.h"

namespace vu::store {

namespace {

// FNV-1a with 32 bits: fixed here, as what is stored depends on it.
std::uint32_t fold(std::uint32_t hash, std::string_view bytes) {
  for (const char byte : bytes) {
    hash = (hash ^ static_cast<unsigned char>(byte)) * 16777619U;
  }
  return hash;
}

// "DB:TYPE:IDENTITY", which tells the partition.
std::string object_name(std::int32_t db, const TypeInfo& type, std::string_view identity) {
  std::string name;
  name.reserve(16 + type.name.size() + 2 * identity.size());
  append_decimal(name, db);
  name.append(1, ':').append(type.name).append(1, ':');
  append_identity_text(name, identity);
  return name;
}

unsigned partition_of_name(std::string_view object_name) {
  return fold(2166136261U, object_name) % kPartitions;
}

}  // namespace

std::string shelf_name(std::int32_t db, const TypeInfo& type) {
  return std::to_string(db) + ':' + type.name;
}

unsigned partition_of(std::int32_t db, const TypeInfo& type, std::string_view identity) {
  return partition_of_name(object_name(db, type, identity));
}

std::string object_key(const Place& place, std::int32_t db, const TypeInfo& type,
                       std::string_view identity) {
  const std::string name = object_name(db, type, identity);
  std::string key;
  key.reserve(place.prefix.size() + 16 + name.size());
  key.append(place.prefix).append(":{");
  append_decimal(key, partition_of_name(name));
  return key.append("}:").append(name);
}

std::string partition_key(const Place& place, unsigned partition, std::string_view name) {
  return place.prefix + ":{" + std::to_string(partition) + "}!" + std::string(name);
}

std::string channel_of(const Place& place, std::int32_t db, const TypeInfo& type,
                       std::string_view prefix, bool of_fields) {
  return place.prefix + (of_fields ? ":f:" : ":o:") + shelf_name(db, type) + ':' +
         identity_text(prefix);
}

}  // namespace vu::store
