// Hashes.
#include <algorithm>
#include <memory>
#include <utility>

#include "contents.h"
#include "run.h"

namespace vu::store {

namespace {

std::vector<Field>::iterator place_of(std::vector<Field>& fields, std::uint32_t number) {
  return std::lower_bound(
      fields.begin(), fields.end(), number,
      [](const Field& field, std::uint32_t sought) { return field.number < sought; });
}

// Writes one field or, where it has no records, deletes it. Requires: capacity.
void put_field(std::vector<Field>& fields, Field& field) noexcept {
  const auto place = place_of(fields, field.number);
  const bool there = place != fields.end() && place->number == field.number;
  if (field.records.empty()) {
    if (there) fields.erase(place);
  } else if (there) {
    place->records.swap(field.records);
  } else {
    fields.insert(place, std::move(field));
  }
}

}  // namespace

// Writes request_.fields; those without records are deleted. Nothing but fields that
// are not there to be deleted: no change, and no event.
void Run::write_fields(Cell existing, std::int32_t type_code) {
  std::vector<Field>& fields = request_.fields;
  HashBody* const old = existing == 0 ? nullptr : &body<HashBody>(existing);
  std::size_t written = 0;
  std::size_t changed = 0;
  for (const Field& field : fields) {
    const bool carried = !field.records.empty();
    const bool there = old != nullptr && old->find(field.number) != nullptr;
    if (carried) ++written;
    if (carried || there) ++changed;
  }
  reply_integer(type_code == VU_MOM_TYPE_HMSETNX ? (changed > 0 ? 1 : 0)
                                                 : static_cast<std::int64_t>(changed));
  if (changed == 0) return;

  tell(type_code, [&] { return content_of(fields); });
  for (const Field& field : fields) {
    if (!field.records.empty()) {
      tell_field(field.number, type_code, [&] { return content_of(std::vector<Field>{field}); });
    } else if (old != nullptr && old->find(field.number) != nullptr) {
      tell_field(field.number, VU_MOM_TYPE_DELETED, [] { return Content(); });
    }
  }

  if (old == nullptr) {
    auto made = std::make_unique<HashBody>();
    made->fields.reserve(written);
    for (Field& field : fields) put_field(made->fields, field);
    std::unique_ptr<Body> hash = std::move(made);
    std::unique_ptr<Extra> extra;
    shelf().add(Kind::kHash, request_.identity, {}, extra, hash);
    return;
  }
  old->fields.reserve(old->fields.size() + written);
  Extra* const extra = object(existing).extra();
  for (Field& field : fields) {
    if (extra != nullptr) store_.lifetimes().clear_field(*extra, field.number);
    put_field(old->fields, field);
  }
  if (old->fields.empty()) {
    shelf().remove(existing);
  } else if (extra != nullptr && type_code == VU_MOM_TYPE_HMSET && !request_.named) {
    store_.lifetimes().clear(*extra);
  }
}

void Run::hmset() { write_fields(find_kind(Kind::kHash), VU_MOM_TYPE_HMSET); }

void Run::hmsetnx() {
  const Cell cell = find_kind(Kind::kHash);
  if (cell != 0) {
    for (const Field& field : request_.fields) {
      if (body<HashBody>(cell).find(field.number) != nullptr) return reply_integer(0);
    }
  }
  write_fields(cell, VU_MOM_TYPE_HMSETNX);
}

void Run::hmupdate() {
  const Cell cell = find_kind(Kind::kHash);
  if (cell == 0) return reply_integer(0);
  write_fields(cell, VU_MOM_TYPE_HMUPDATE);
}

// hmget, and hgetall as hmget that names no field.
void Run::hmget() {
  const Cell cell = find_kind(Kind::kHash);
  if (cell == 0) return reply(Content());
  HashBody& hash = body<HashBody>(cell);
  if (request_.tags.empty()) return reply(content_of(hash.fields), VU_MOM_TYPE_HMSET);
  std::vector<Field> named;
  for (const std::uint32_t tag : request_.tags) {
    const Field* const field = hash.find(tag);
    named.push_back({tag, field == nullptr ? std::string() : field->records});
  }
  reply(content_of(named), VU_MOM_TYPE_HMSET);
}

}  // namespace vu::store
