#include "store_model.h"

#include <algorithm>

#include "model_content.h"

namespace vu::fuzz {

// Finding and telling.

Model::Object* Model::find(const Place& place) {
  const auto found = objects_.find(place);
  return found == objects_.end() ? nullptr : &found->second;
}

Model::Object* Model::find(const Place& place, Kind kind) {
  Object* const found = find(place);
  if (found != nullptr && found->kind != kind) throw WrongKind();
  return found;
}

Model::Object& Model::put(const Place& place, const Name& name, Kind kind) {
  Object& made = objects_[place];
  made.name = &name;
  made.kind = kind;
  return made;
}

void Model::erase(const Place& place) {
  const auto& [db, type, identity] = place;
  for (const auto& weak : scans_) {
    const auto scan = weak.lock();
    if (scan && scan->db == db && scan->type == type) scan->throughout.erase(identity);
  }
  objects_.erase(place);
}

void Model::erase_if_empty(const Place& place) {
  const Object& object = objects_.at(place);
  if (object.fields.empty() && object.list.empty() && object.members.empty() &&
      object.scores.empty()) {
    erase(place);
  }
}

bool Model::carries(const Object& object, std::uint32_t number) const {
  if (object.fields.count(number) != 0) return true;
  if (object.kind != Kind::kSingle) return false;
  const auto& keys = types_[static_cast<std::size_t>(object.name->type)].keys;
  return std::find(keys.begin(), keys.end(), number) != keys.end();
}

std::int64_t Model::tell(const Place& place, const Name& name, int code, Content content,
                         std::uint32_t field, bool unordered) {
  const auto shared = std::make_shared<const Content>(std::move(content));
  std::int64_t told = 0;
  for (const auto& one : subscriptions_) {
    if (one->db != std::get<0>(place) || one->type != name.type || one->field != field) continue;
    if (!std::equal(one->prefix.begin(), one->prefix.end(), name.components.begin())) continue;
    one->expected.push_back({code, field, &name, shared, unordered});
    ++told;
  }
  return told;
}

void Model::tell_gone(const Place& place, const Object& object, int code) {
  tell(place, *object.name, code, Content());
  for (const std::uint32_t number : types_[static_cast<std::size_t>(object.name->type)].numbers) {
    if (carries(object, number)) tell(place, *object.name, code, Content(), number);
  }
}

void Model::remove(const Place& place, int code) {
  tell_gone(place, objects_.at(place), code);
  erase(place);
}

std::vector<Model::Place> Model::matching(std::int32_t db, const Message& message,
                                          std::uint32_t level) const {
  const auto prefix = prefix_of(*message.name, level);
  std::vector<Place> places;
  for (const auto& [place, object] : objects_) {
    if (std::get<0>(place) != db || std::get<1>(place) != message.name->type) continue;
    if (std::equal(prefix.begin(), prefix.end(), object.name->components.begin())) {
      places.push_back(place);
    }
  }
  return places;
}

// Time.

void Model::advance(std::int64_t microseconds) {
  now_ += microseconds;
  std::vector<Place> places;
  for (const auto& [place, object] : objects_) places.push_back(place);
  for (const Place& place : places) {
    // In the order of deadlines, then of field numbers, the object last.
    std::vector<std::tuple<std::int64_t, bool, std::uint32_t>> due;
    const Object& object = objects_.at(place);
    for (const auto& [number, end] : object.field_ends) due.emplace_back(end, false, number);
    due.emplace_back(object.ends, true, 0);
    std::sort(due.begin(), due.end());
    for (const auto& [end, is_object, number] : due) {
      if (end > now_) break;
      if (is_object) {
        remove(place, 0);
      } else {
        expire_field(place, number);
      }
      if (find(place) == nullptr) break;
    }
  }
}

void Model::forget() {
  objects_.clear();
  now_ = 0;
}

void Model::expire_field(const Place& place, std::uint32_t number) {
  Object& object = objects_.at(place);
  tell(place, *object.name, 0, Content(), number);
  // Those who watch the whole object learn the field, too.
  for (const auto& one : subscriptions_) {
    const Name& name = *object.name;
    if (one->db != std::get<0>(place) || one->type != name.type || one->field != 0) continue;
    if (!std::equal(one->prefix.begin(), one->prefix.end(), name.components.begin())) continue;
    one->expected.push_back({0, number, &name, std::make_shared<Content>(), false});
  }
  object.fields.erase(number);
  object.field_ends.erase(number);
  erase_if_empty(place);
}

// Single values.

// Tells of `watched` fields and of the whole, and stores.
Model::Object& Model::store(const Place& place, const Message& message, const Fields& carried,
                            int code, bool quiet, const std::vector<std::uint32_t>& watched) {
  const Name& name = *message.name;
  Object* found = find(place);
  const Fields old = found == nullptr ? Fields() : found->fields;
  if (found == nullptr) found = &put(place, name, Kind::kSingle);
  found->fields = carried;
  if (quiet) return *found;
  tell(place, name, code, Content::of_message(message_bytes(name, carried)));
  const auto& keys = types_[static_cast<std::size_t>(name.type)].keys;
  for (const std::uint32_t number : watched) {
    const bool is_key = std::find(keys.begin(), keys.end(), number) != keys.end();
    if (carried.count(number) != 0 || is_key) {
      Fields one;
      if (carried.count(number) != 0) one[number] = carried.at(number);
      tell(place, name, code, Content::of_message(message_bytes(name, one)), number);
    } else if (old.count(number) != 0) {
      tell(place, name, 29, Content(), number);
    }
  }
  return *found;
}

Reply Model::get(std::int32_t db, const Message& message) {
  return replying([&] {
    Reply reply;
    const Object* const found = find(place_of(db, message), Kind::kSingle);
    if (found == nullptr) return reply;
    reply.type_code = 1;
    reply.content = Content::of_message(message_bytes(*message.name, found->fields));
    return reply;
  });
}

Reply Model::set(std::int32_t db, const Message& message, std::int32_t flag) {
  return replying([&] {
    const Place place = place_of(db, message);
    find(place, Kind::kSingle);
    const auto& watched = types_[static_cast<std::size_t>(message.name->type)].numbers;
    Object& object = store(place, message, message.fields, 1, (flag & 1) != 0, watched);
    if ((flag & 2) == 0) object.ends = INT64_MAX;
    return Reply::integer(1);
  });
}

Reply Model::setow(std::int32_t db, const Message& message, std::int64_t owner, std::int32_t flag) {
  return replying([&] {
    const Place place = place_of(db, message);
    const Object* const found = find(place, Kind::kSingle);
    if (found != nullptr && found->owner && *found->owner != owner) return Reply::failure();
    set(db, message, flag);
    find(place)->owner = owner;
    return Reply::integer(1);
  });
}

Reply Model::setnx(std::int32_t db, const Message& message) {
  return replying([&] {
    const Place place = place_of(db, message);
    if (find(place, Kind::kSingle) != nullptr) return Reply::integer(0);
    const auto& watched = types_[static_cast<std::size_t>(message.name->type)].numbers;
    store(place, message, message.fields, 1, false, watched);
    return Reply::integer(1);
  });
}

Reply Model::incr(std::int32_t db, const Message& message) {
  return replying([&] {
    const Place place = place_of(db, message);
    const int number_of_type = message.name->type;
    const Type& type = types_[static_cast<std::size_t>(number_of_type)];
    const CounterField& counter = type.counter;
    const Object* const found = find(place, Kind::kSingle);
    Fields carried = found == nullptr ? message.fields : found->fields;
    std::int64_t count = counter.initial;
    if (found != nullptr && carried.count(counter.number) != 0) {
      count = counter.value(number_of_type, carried.at(counter.number));
    }
    if (count >= counter.most) return Reply::failure();
    ++count;
    // A counter that comes to 0 is carried, though it may have no bytes.
    carried[counter.number] = counter.record(number_of_type, count);
    const std::vector<std::uint32_t> watched =
        found == nullptr ? type.numbers : std::vector<std::uint32_t>{counter.number};
    store(place, message, carried, 3, false, watched);
    return Reply::integer(count);
  });
}

Reply Model::del(std::int32_t db, const Message& message) {
  const Place place = place_of(db, message);
  if (find(place) == nullptr) return Reply::integer(0);
  remove(place, 29);
  return Reply::integer(1);
}

Reply Model::delow(std::int32_t db, const Message& message, std::int64_t owner, std::int32_t flag) {
  const Place place = place_of(db, message);
  const Object* const found = find(place);
  if (found == nullptr) return Reply::integer(0);
  if (!found->owner || *found->owner != owner) return Reply::failure();
  if ((flag & 1) != 0) {
    erase(place);
  } else {
    remove(place, 29);
  }
  return Reply::integer(1);
}

// Hashes.

Reply Model::write_fields(std::int32_t db, const Message& message,
                          const std::set<std::uint32_t>& tags, int code) {
  return replying([&] {
    const Place place = place_of(db, message);
    const Name& name = *message.name;
    Object* found = find(place, Kind::kHash);
    if (code == 9 && found == nullptr) return Reply::integer(0);
    const std::set<std::uint32_t> named = tags.empty() ? numbers_of(message.fields) : tags;
    const Fields old = found == nullptr ? Fields() : found->fields;
    if (code == 6) {
      for (const std::uint32_t number : named) {
        if (old.count(number) != 0) return Reply::integer(0);
      }
    }
    std::int64_t changed = 0;
    Fields written;
    for (const std::uint32_t number : named) {
      if (message.fields.count(number) != 0) written[number] = message.fields.at(number);
      if (message.fields.count(number) != 0 || old.count(number) != 0) ++changed;
    }
    if (changed == 0) return Reply::integer(0);
    tell(place, name, code, hash(name, written, named));
    for (const std::uint32_t number : named) {
      if (written.count(number) != 0) {
        tell(place, name, code, hash(name, {{number, written.at(number)}}, {number}), number);
      } else if (old.count(number) != 0) {
        tell(place, name, 29, Content(), number);
      }
    }
    if (found == nullptr) found = &put(place, name, Kind::kHash);
    for (const std::uint32_t number : named) {
      found->field_ends.erase(number);
      found->fields.erase(number);
    }
    for (const auto& [number, record] : written) found->fields[number] = record;
    if (code == 4 && tags.empty()) found->ends = INT64_MAX;
    erase_if_empty(place);
    return Reply::integer(code == 6 ? 1 : changed);
  });
}

Reply Model::hmget(std::int32_t db, const Message& message, const std::set<std::uint32_t>& tags) {
  return replying([&] {
    Reply reply;
    const Object* const found = find(place_of(db, message), Kind::kHash);
    if (found == nullptr) return reply;
    Fields there = found->fields;
    if (!tags.empty())
      std::erase_if(there, [&](const auto& one) { return !tags.count(one.first); });
    reply.type_code = 4;
    reply.content = hash(*message.name, there, tags.empty() ? numbers_of(there) : tags);
    return reply;
  });
}

}  // namespace vu::fuzz
