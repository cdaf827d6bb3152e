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

// Appends "DB:TYPE:IDENTITY", which tells the partition.
void append_object_name(std::string& name, std::int32_t db, const TypeInfo& type,
                        std::string_view identity) {
  append_decimal(name, db);
  name.append(1, ':').append(type.name).append(1, ':');
  append_identity_text(name, identity);
}

unsigned partition_of_name(std::string_view object_name) {
  return fold(2166136261U, object_name) % kPartitions;
}

}  // namespace

std::string shelf_name(std::int32_t db, const TypeInfo& type) {
  return std::to_string(db) + ':' + type.name;
}

unsigned partition_of(std::int32_t db, const TypeInfo& type, std::string_view identity) {
  std::string name;
  append_object_name(name, db, type, identity);
  return partition_of_name(name);
}

void make_object_key(std::string& key, const Place& place, std::int32_t db, const TypeInfo& type,
                     std::string_view identity) {
  // The partition, whose digits are known when the name is, is put in front of it.
  constexpr std::size_t kDigits = 2;
  static_assert(kPartitions <= 100);
  const std::size_t start = place.prefix.size() + 2;
  const std::size_t room = start + kDigits + 2;
  key.reserve(room + 16 + type.name.size() + 2 * identity.size());
  key.append(place.prefix).append(":{00}:");
  append_object_name(key, db, type, identity);
  const unsigned partition = partition_of_name(std::string_view(key).substr(room));
  key[start] = static_cast<char>('0' + partition / 10);
  key[start + 1] = static_cast<char>('0' + partition % 10);
  if (partition < 10) key.erase(start, 1);
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
