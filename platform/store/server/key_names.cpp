#include "key_names.h"

namespace vu::store {

namespace {

// FNV-1a with 32 bits: fixed here, as what is stored depends on it.
std::uint32_t fold(std::uint32_t hash, std::string_view bytes) {
  for (const char byte : bytes) {
    hash = (hash ^ static_cast<unsigned char>(byte)) * 16777619U;
  }
  return hash;
}

unsigned partition_of_name(std::string_view shelf, std::string_view identity) {
  std::uint32_t hash = fold(2166136261U, shelf);
  hash = fold(hash, ":");
  return fold(hash, identity) % kPartitions;
}

}  // namespace

std::string shelf_name(std::int32_t db, const TypeInfo& type) {
  return std::to_string(db) + ':' + type.name;
}

unsigned partition_of(std::int32_t db, const TypeInfo& type, std::string_view identity) {
  return partition_of_name(shelf_name(db, type), identity_text(identity));
}

std::string object_key(const Place& place, std::int32_t db, const TypeInfo& type,
                       std::string_view identity) {
  const std::string shelf = shelf_name(db, type);
  const std::string text = identity_text(identity);
  std::string key = place.prefix;
  key.append(":{").append(std::to_string(partition_of_name(shelf, text))).append("}:");
  key.append(shelf).append(":").append(text);
  return key;
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
