#include "live.h"

#include <cstddef>
#include <memory>
#include <new>
#include <utility>

#include "embedded/hash_index.h"
#include "front.h"
#include "record.h"

namespace vu::store {

namespace {

struct Entry {
  std::intptr_t address;
  std::uint32_t count;
};

std::size_t hash_of(std::intptr_t address) {
  // Addresses are multiples of 8 or 16; multiplying spreads them over all bits.
  const std::uint64_t bits = static_cast<std::uint64_t>(address) * 0x9E3779B97F4A7C15u;
  return static_cast<std::size_t>(bits >> 24);
}

// Never destroyed: interpreters release messages until the very end of the process.
HashIndex<Entry>& registry() {
  static auto* const entries = new HashIndex<Entry>();
  return *entries;
}

Entry* find(std::intptr_t address) {
  return registry().find(hash_of(address),
                         [&](const Entry& entry) { return entry.address == address; });
}

void add(std::intptr_t address) {
  if (Entry* entry = find(address)) {
    ++entry->count;
    return;
  }
  registry().prepare_insert([](const Entry& entry) { return hash_of(entry.address); });
  registry().insert(hash_of(address), Entry{address, 1});
}

void remove(std::intptr_t address) {
  Entry* entry = find(address);
  if (entry != nullptr && --entry->count == 0) registry().erase(entry);
}

}  // namespace

bool is_live(std::intptr_t address) {
  return find(address) != nullptr || Record::is_message(address);
}

}  // namespace vu::store

VU_STORE_EXPORT int32_t vu_platform_message_add(intptr_t address) {
  VU_STORE_ENTRY();
  try {
    vu::store::add(address);
    return VU_MOM_OK;
  } catch (const std::bad_alloc&) {
    return VU_MOM_NO_MEMORY;
  }
}

VU_STORE_EXPORT void vu_platform_message_remove(intptr_t address) {
  VU_STORE_ENTRY();
  vu::store::remove(address);
}

VU_STORE_EXPORT int vu_platform_message_is_live(intptr_t address) {
  VU_STORE_ENTRY();
  return vu::store::is_live(address) ? 1 : 0;
}

VU_STORE_EXPORT void vu_platform_message_drop(intptr_t address) {
  VU_STORE_ENTRY();
  // NOLINTNEXTLINE(performance-no-int-to-ptr): addresses come as integers
  auto* const dropped = reinterpret_cast<google::protobuf::Message*>(address);
  std::unique_ptr<google::protobuf::Message> message(dropped);
  try {
    const vu::store::TypeInfo* const type = vu::store::type_of(*message);
    if (type != nullptr) type->spare->give(std::move(message));
  } catch (const std::bad_alloc&) {
    // Its type was not known yet: it is deleted.
  }
}

VU_STORE_EXPORT int32_t vu_platform_message_take(intptr_t address, intptr_t* taken) {
  VU_STORE_ENTRY();
  *taken = 0;
  if (vu::store::find(address) != nullptr) return VU_MOM_BAD_INPUT;  // it has an owner
  try {
    *taken = reinterpret_cast<std::intptr_t>(vu::store::Record::take(address).release());
    return *taken != 0 ? VU_MOM_OK : VU_MOM_BAD_INPUT;
  } catch (const std::bad_alloc&) {
    return VU_MOM_NO_MEMORY;
  }
}
