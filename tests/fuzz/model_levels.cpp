// The model: levels, scans and subscriptions.
#include <algorithm>

#include "model_content.h"
#include "store_model.h"

namespace vu::fuzz {

// Levels.

namespace {

template <typename Places>
std::vector<std::string> identities_of(const Places& places) {
  std::vector<std::string> identities;
  for (const auto& place : places) identities.push_back(std::get<2>(place));
  return identities;
}

}  // namespace

Model::Acted Model::pexpire(std::int32_t db, const Message& message, std::uint32_t level,
                            std::int64_t microseconds) {
  const auto places = matching(db, message, level);
  for (const Place& place : places) {
    if (microseconds <= 0) {
      remove(place, 0);
    } else {
      objects_.at(place).ends = now_ + microseconds;
    }
  }
  return identities_of(places);
}

Model::Acted Model::pexpire_fields(std::int32_t db, const Message& message, std::uint32_t level,
                                   const std::set<std::uint32_t>& tags, std::int64_t microseconds) {
  std::vector<Place> places;
  bool other_kind = false;
  for (const Place& place : matching(db, message, level)) {
    const Object& object = objects_.at(place);
    if (object.kind != Kind::kHash) {
      other_kind = true;
      continue;
    }
    for (const std::uint32_t tag : tags) {
      if (object.fields.count(tag) == 0) continue;
      places.push_back(place);
      break;
    }
  }
  if (places.empty() && other_kind) return std::nullopt;
  for (const Place& place : places) {
    for (const std::uint32_t tag : tags) {
      Object* const object = find(place);
      if (object == nullptr || object->fields.count(tag) == 0) continue;
      if (microseconds <= 0) {
        expire_field(place, tag);
      } else {
        object->field_ends[tag] = now_ + microseconds;
      }
    }
  }
  return identities_of(places);
}

Model::Acted Model::del_expire(std::int32_t db, const Message& message, std::uint32_t level) {
  const auto places = matching(db, message, level);
  for (const Place& place : places) objects_.at(place).ends = INT64_MAX;
  return identities_of(places);
}

Model::Acted Model::pdel(std::int32_t db, const Message& message, std::uint32_t level) {
  const auto places = matching(db, message, level);
  for (const Place& place : places) remove(place, 29);
  return identities_of(places);
}

std::shared_ptr<Scan> Model::scan(std::int32_t db, const Message& message, std::uint32_t level) {
  auto scan = std::make_shared<Scan>();
  scan->db = db;
  scan->type = message.name->type;
  scan->prefix = prefix_of(*message.name, level);
  for (const Place& place : matching(db, message, level)) {
    scan->throughout.insert(std::get<2>(place));
  }
  std::erase_if(scans_, [](const auto& one) { return one.expired(); });
  scans_.push_back(scan);
  return scan;
}

std::optional<Reply> Model::scanned(const Scan& scan, const std::string& identity,
                                    bool keys_only) const {
  const auto found = objects_.find({scan.db, scan.type, identity});
  if (found == objects_.end() || !identity.starts_with(joined(scan.prefix))) return std::nullopt;
  const Object& object = found->second;
  Reply reply;
  if (keys_only) {
    reply.type_code = 37;
    reply.content = Content::of_message(message_bytes(*object.name, {}));
  } else {
    reply.type_code = static_cast<int>(object.kind);
    reply.unordered = object.kind == Kind::kSet;
    reply.content = content_of(object);
  }
  return reply;
}

Content Model::content_of(const Object& object) const {
  switch (object.kind) {
    case Kind::kSingle:
      return Content::of_message(message_bytes(*object.name, object.fields));
    case Kind::kHash:
      return hash(*object.name, object.fields, numbers_of(object.fields));
    case Kind::kList: {
      std::vector<std::string> all;
      for (const Fields& element : object.list) all.push_back(message_bytes(*object.name, element));
      return messages(all);
    }
    case Kind::kSet:
      return messages({object.members.begin(), object.members.end()});
    case Kind::kSorted:
      return scored(ranked(object.scores));
  }
  return Content();
}

// Subscriptions.

std::shared_ptr<Subscription> Model::subscribe(const void* handle, std::int32_t db,
                                               const Message& message, std::uint32_t level,
                                               std::uint32_t field) {
  auto made = std::make_shared<Subscription>();
  made->handle = handle;
  made->db = db;
  made->type = message.name->type;
  made->prefix = prefix_of(*message.name, level);
  made->field = field;
  subscriptions_.push_back(made);
  return made;
}

void Model::unsubscribe(const void* handle, std::int32_t db, const Message& message,
                        std::uint32_t level, const std::set<std::uint32_t>& fields) {
  const auto prefix = prefix_of(*message.name, level);
  std::erase_if(subscriptions_, [&](const auto& one) {
    if (one->handle != handle || one->db != db || one->type != message.name->type) return false;
    if (one->prefix != prefix || fields.count(one->field) == 0) return false;
    one->ended = true;
    return true;
  });
}

void Model::close(const void* handle) {
  std::erase_if(subscriptions_, [&](const auto& one) {
    if (one->handle != handle) return false;
    one->ended = one->closed = true;
    return true;
  });
}

Reply Model::publish(std::int32_t db, const Message& message) {
  const Content content = Content::of_message(message.bytes);
  return Reply::integer(tell(place_of(db, message), *message.name, 24, content));
}

}  // namespace vu::fuzz
