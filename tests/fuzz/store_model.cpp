#include "store_model.h"

#include <algorithm>

namespace vu::fuzz {

namespace {

std::vector<std::string> prefix_of(const Name& name, std::uint32_t level) {
  const std::size_t size = std::min<std::size_t>(level, name.components.size());
  return {name.components.begin(), name.components.begin() + static_cast<std::ptrdiff_t>(size)};
}

std::string joined(const std::vector<std::string>& components) {
  std::string all;
  for (const std::string& component : components) all += component;
  return all;
}

// Positions from start to stop, negative ones counted from the end.
template <typename Sequence>
Sequence part(const Sequence& whole, std::int64_t start, std::int64_t stop) {
  const auto size = static_cast<std::int64_t>(whole.size());
  if (start < 0) start += size;
  if (stop < 0) stop += size;
  Sequence chosen;
  for (std::int64_t i = 0; i < size; ++i) {
    if (i >= start && i <= stop) chosen.push_back(whole[static_cast<std::size_t>(i)]);
  }
  return chosen;
}

using Pairs = std::vector<std::pair<double, std::string>>;

Pairs ranked(const std::map<std::string, double>& scores) {
  Pairs pairs;
  for (const auto& [member, score] : scores) pairs.emplace_back(score, member);
  std::sort(pairs.begin(), pairs.end(), [](const auto& one, const auto& other) {
    if (one.first != other.first) return one.first < other.first;
    return one.second < other.second;
  });
  return pairs;
}

Pairs between(const Pairs& pairs, double min, double max) {
  Pairs chosen;
  for (const auto& pair : pairs) {
    if (min <= pair.first && pair.first <= max) chosen.push_back(pair);
  }
  return chosen;
}

Content scored(const Pairs& pairs) {
  Content content;
  content.form = Content::Form::kScored;
  for (const auto& [score, member] : pairs) {
    content.messages.push_back(member);
    content.scores.push_back(score);
  }
  return content;
}

Content hash(const Name& name, const Fields& fields, const std::set<std::uint32_t>& tags) {
  Content content;
  content.form = Content::Form::kHash;
  content.messages.push_back(message_bytes(name, fields));
  content.tags.assign(tags.begin(), tags.end());
  return content;
}

std::set<std::uint32_t> numbers_of(const Fields& fields) {
  std::set<std::uint32_t> numbers;
  for (const auto& [number, record] : fields) numbers.insert(number);
  return numbers;
}

Content messages(std::vector<std::string> all) {
  Content content;
  content.form = Content::Form::kMessages;
  content.messages = std::move(all);
  return content;
}

}  // namespace

std::string message_bytes(const Name& name, const Fields& carried) {
  Fields fields = carried;
  for (const auto& [number, record] : name.keys) fields[number] = record;
  std::string bytes;
  for (const auto& [number, record] : fields) bytes += record;
  return bytes;
}

Content Content::of_message(std::string bytes) {
  Content content;
  content.form = Form::kMessage;
  content.messages.push_back(std::move(bytes));
  return content;
}

Content Content::of_integer(std::int64_t value) {
  Content content;
  content.form = Form::kInteger;
  content.integer = value;
  return content;
}

Content Content::of_score(double value) {
  Content content;
  content.form = Form::kScore;
  content.score = value;
  return content;
}

void Content::sort() {
  if (form == Form::kMessages) std::sort(messages.begin(), messages.end());
  if (form != Form::kScored) return;
  Pairs pairs;
  for (std::size_t i = 0; i < messages.size(); ++i) pairs.emplace_back(scores[i], messages[i]);
  std::sort(pairs.begin(), pairs.end());
  *this = scored(pairs);
}

Reply Reply::failure() {
  Reply reply;
  reply.failed = true;
  return reply;
}

Reply Reply::integer(std::int64_t value) {
  Reply reply;
  reply.content = Content::of_integer(value);
  return reply;
}

// A command on another kind of object fails, having done nothing.
template <typename Do>
Reply Model::replying(Do run) {
  try {
    return run();
  } catch (const WrongKind&) {
    return Reply::failure();
  }
}

// ---- Finding and telling ------------------------------------------------------------------

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

// ---- Time ---------------------------------------------------------------------------------

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

// ---- Single values ------------------------------------------------------------------------

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

// ---- Hashes -------------------------------------------------------------------------------

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

// ---- Lists --------------------------------------------------------------------------------

Reply Model::push(std::int32_t db, const Message& message, int code) {
  return replying([&] {
    const Place place = place_of(db, message);
    Object* found = find(place, Kind::kList);
    if (found == nullptr) found = &put(place, *message.name, Kind::kList);
    found->list.insert(code == 10 ? found->list.begin() : found->list.end(), message.fields);
    tell(place, *message.name, code, messages({message.bytes}));
    return Reply::integer(static_cast<std::int64_t>(found->list.size()));
  });
}

Reply Model::pop(std::int32_t db, const Message& message, int code) {
  return replying([&] {
    Reply reply;
    const Place place = place_of(db, message);
    Object* const found = find(place, Kind::kList);
    if (found == nullptr) return reply;
    const auto at = code == 12 ? found->list.begin() : found->list.end() - 1;
    const std::string bytes = message_bytes(*message.name, *at);
    found->list.erase(at);
    reply.type_code = code;
    reply.content = Content::of_message(bytes);
    tell(place, *message.name, code, messages({bytes}));
    erase_if_empty(place);
    return reply;
  });
}

Reply Model::llen(std::int32_t db, const Message& message) {
  return replying([&] {
    const Object* const found = find(place_of(db, message), Kind::kList);
    return Reply::integer(found == nullptr ? 0 : static_cast<std::int64_t>(found->list.size()));
  });
}

Reply Model::lset(std::int32_t db, const Message& message, std::int32_t position) {
  return replying([&] {
    const Place place = place_of(db, message);
    Object* const found = find(place, Kind::kList);
    if (found == nullptr) return Reply::integer(0);
    const auto size = static_cast<std::int64_t>(found->list.size());
    const std::int64_t at = position < 0 ? position + size : position;
    if (at < 0 || at >= size) return Reply::integer(0);
    found->list[static_cast<std::size_t>(at)] = message.fields;
    tell(place, *message.name, 35, messages({message.bytes}));
    return Reply::integer(1);
  });
}

Reply Model::lrem(std::int32_t db, const Message& message, std::size_t count) {
  return replying([&] {
    const Place place = place_of(db, message);
    Object* const found = find(place, Kind::kList);
    if (found == nullptr) return Reply::integer(0);
    std::vector<Fields> kept;
    std::vector<std::string> removed;
    for (const Fields& element : found->list) {
      if (element == message.fields && (count == 0 || removed.size() < count)) {
        removed.push_back(message.bytes);
      } else {
        kept.push_back(element);
      }
    }
    const auto size = static_cast<std::int64_t>(removed.size());
    if (size == 0) return Reply::integer(0);
    found->list = kept;
    tell(place, *message.name, 36, messages(removed));
    erase_if_empty(place);
    return Reply::integer(size);
  });
}

Reply Model::linsert(std::int32_t db, const Message& pivot, const Message& message,
                     std::int32_t order) {
  return replying([&] {
    const Place place = place_of(db, message);
    Object* const found = find(place, Kind::kList);
    if (found == nullptr) return Reply::integer(0);
    const auto at = std::find(found->list.begin(), found->list.end(), pivot.fields);
    if (at == found->list.end()) return Reply::integer(-1);
    found->list.insert(at + order, message.fields);
    tell(place, *message.name, 34, messages({message.bytes}));
    return Reply::integer(static_cast<std::int64_t>(found->list.size()));
  });
}

Reply Model::lrange(std::int32_t db, const Message& message, std::int32_t start,
                    std::int32_t stop) {
  return replying([&] {
    const Object* const found = find(place_of(db, message), Kind::kList);
    std::vector<std::string> all;
    if (found != nullptr) {
      for (const Fields& element : found->list)
        all.push_back(message_bytes(*message.name, element));
    }
    Reply reply;
    reply.type_code = 10;
    reply.content = messages(part(all, start, stop));
    return reply;
  });
}

// ---- Sets ---------------------------------------------------------------------------------

Reply Model::sadd(std::int32_t db, const Message& message) {
  return replying([&] {
    const Place place = place_of(db, message);
    Object* found = find(place, Kind::kSet);
    if (found != nullptr && found->members.count(message.bytes) != 0) return Reply::integer(0);
    if (found == nullptr) found = &put(place, *message.name, Kind::kSet);
    found->members.insert(message.bytes);
    tell(place, *message.name, 18, messages({message.bytes}));
    return Reply::integer(1);
  });
}

Reply Model::srem(std::int32_t db, const Message& message) {
  return replying([&] {
    const Place place = place_of(db, message);
    Object* const found = find(place, Kind::kSet);
    if (found == nullptr || found->members.erase(message.bytes) == 0) return Reply::integer(0);
    tell(place, *message.name, 19, messages({message.bytes}));
    erase_if_empty(place);
    return Reply::integer(1);
  });
}

Reply Model::smembers(std::int32_t db, const Message& message) {
  return replying([&] {
    const Object* const found = find(place_of(db, message), Kind::kSet);
    Reply reply;
    reply.type_code = 18;
    reply.unordered = true;
    reply.content = messages({});
    if (found != nullptr) reply.content = content_of(*found);
    return reply;
  });
}

Reply Model::scard(std::int32_t db, const Message& message) {
  return replying([&] {
    const Object* const found = find(place_of(db, message), Kind::kSet);
    return Reply::integer(found == nullptr ? 0 : static_cast<std::int64_t>(found->members.size()));
  });
}

Reply Model::sismember(std::int32_t db, const Message& message) {
  return replying([&] {
    const Object* const found = find(place_of(db, message), Kind::kSet);
    return Reply::integer(found != nullptr && found->members.count(message.bytes) != 0 ? 1 : 0);
  });
}

// ---- Sorted sets --------------------------------------------------------------------------

Reply Model::zadd(std::int32_t db, const std::vector<double>& scores,
                  const std::vector<const Message*>& members) {
  return replying([&] {
    if (members.empty()) return Reply::integer(0);
    const Place place = place_of(db, *members[0]);
    Object* found = find(place, Kind::kSorted);
    std::map<std::string, double> given;  // the last score counts
    for (std::size_t i = 0; i < members.size(); ++i) given[members[i]->bytes] = scores[i];
    std::int64_t added = 0;
    Pairs changed;
    for (const auto& [member, score] : given) {
      const bool there = found != nullptr && found->scores.count(member) != 0;
      if (!there) ++added;
      if (!there || found->scores.at(member) != score) changed.emplace_back(score, member);
    }
    if (changed.empty()) return Reply::integer(0);
    if (found == nullptr) found = &put(place, *members[0]->name, Kind::kSorted);
    for (const auto& [score, member] : changed) found->scores[member] = score;
    tell(place, *members[0]->name, 39, scored(changed), 0, true);
    return Reply::integer(added);
  });
}

Reply Model::take(const Place& place, Pairs pairs, int code, bool unordered) {
  if (pairs.empty()) return Reply::integer(0);
  Object& object = objects_.at(place);
  for (const auto& [score, member] : pairs) object.scores.erase(member);
  tell(place, *object.name, code, scored(pairs), 0, unordered);
  erase_if_empty(place);
  return Reply::integer(static_cast<std::int64_t>(pairs.size()));
}

Reply Model::zrem(std::int32_t db, const std::vector<const Message*>& members) {
  return replying([&] {
    if (members.empty()) return Reply::integer(0);
    const Place place = place_of(db, *members[0]);
    const Object* const found = find(place, Kind::kSorted);
    if (found == nullptr) return Reply::integer(0);
    std::set<std::string> named;
    for (const Message* const message : members) named.insert(message->bytes);
    Pairs pairs;
    for (const auto& [member, score] : found->scores) {
      if (named.count(member) != 0) pairs.emplace_back(score, member);
    }
    return take(place, pairs, 40, true);
  });
}

Reply Model::zcard(std::int32_t db, const Message& message) {
  return replying([&] {
    const Object* const found = find(place_of(db, message), Kind::kSorted);
    return Reply::integer(found == nullptr ? 0 : static_cast<std::int64_t>(found->scores.size()));
  });
}

Reply Model::zrank(std::int32_t db, const Message& message) {
  return replying([&] {
    const Object* const found = find(place_of(db, message), Kind::kSorted);
    if (found == nullptr || found->scores.count(message.bytes) == 0) return Reply();
    std::int64_t rank = 0;
    for (const auto& [score, member] : ranked(found->scores)) {
      if (member == message.bytes) break;
      ++rank;
    }
    return Reply::integer(rank);
  });
}

Reply Model::zscore(std::int32_t db, const Message& message) {
  return replying([&] {
    Reply reply;
    const Object* const found = find(place_of(db, message), Kind::kSorted);
    if (found == nullptr || found->scores.count(message.bytes) == 0) return reply;
    reply.content = Content::of_score(found->scores.at(message.bytes));
    return reply;
  });
}

Reply Model::zcount(std::int32_t db, const Message& message, double min, double max) {
  return replying([&] {
    const Object* const found = find(place_of(db, message), Kind::kSorted);
    if (found == nullptr) return Reply::integer(0);
    const Pairs pairs = between(ranked(found->scores), min, max);
    return Reply::integer(static_cast<std::int64_t>(pairs.size()));
  });
}

Reply Model::zrange(std::int32_t db, const Message& message, std::int32_t start,
                    std::int32_t stop) {
  return replying([&] {
    const Object* const found = find(place_of(db, message), Kind::kSorted);
    Reply reply;
    reply.type_code = 39;
    reply.content = scored(found == nullptr ? Pairs() : part(ranked(found->scores), start, stop));
    return reply;
  });
}

Reply Model::zrangebyscore(std::int32_t db, const Message& message, double min, double max) {
  return replying([&] {
    const Object* const found = find(place_of(db, message), Kind::kSorted);
    Reply reply;
    reply.type_code = 39;
    reply.content = scored(found == nullptr ? Pairs() : between(ranked(found->scores), min, max));
    return reply;
  });
}

Reply Model::zremrangebyscore(std::int32_t db, const Message& message, double min, double max) {
  return replying([&] {
    const Place place = place_of(db, message);
    const Object* const found = find(place, Kind::kSorted);
    if (found == nullptr) return Reply::integer(0);
    return take(place, between(ranked(found->scores), min, max), 41, false);
  });
}

Reply Model::zremrangebyrank(std::int32_t db, const Message& message, std::int32_t start,
                             std::int32_t stop) {
  return replying([&] {
    const Place place = place_of(db, message);
    const Object* const found = find(place, Kind::kSorted);
    if (found == nullptr) return Reply::integer(0);
    return take(place, part(ranked(found->scores), start, stop), 42, false);
  });
}

// ---- Levels -------------------------------------------------------------------------------

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

// ---- Subscriptions ------------------------------------------------------------------------

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
