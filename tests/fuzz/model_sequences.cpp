// The model: lists, sets and sorted sets.
#include <algorithm>

#include "model_content.h"
#include "store_model.h"

namespace vu::fuzz {

// Lists.

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

// Sets.

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

// Sorted sets.

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

Reply Model::take(const Place& place, const Pairs& pairs, int code, bool unordered) {
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

}  // namespace vu::fuzz
