// Replies of the server as notices: what the embedded engine would say.
#include <hiredis/hiredis.h>

#include <algorithm>
#include <utility>

#include "../embedded/contents.h"
#include "protocol.h"
#include "replies.h"
#include "reply_reader.h"

namespace vu::store {

namespace {

constexpr std::pair<std::string_view, Kind> kKinds[] = {{"value", Kind::kSingle},
                                                        {"hash", Kind::kHash},
                                                        {"list", Kind::kList},
                                                        {"set", Kind::kSet},
                                                        {"zset", Kind::kSortedSet}};

Kind kind_of(std::string_view name) {
  for (const auto& [known, kind] : kKinds) {
    if (known == name) return kind;
  }
  throw BadReply("an unknown kind of object");
}

// The kind that a command is for.
Kind wanted_kind(Command command) {
  switch (command) {
    case Command::kHmset:
    case Command::kHmsetnx:
    case Command::kHmupdate:
    case Command::kHmget:
    case Command::kHgetall:
      return Kind::kHash;
    case Command::kLpush:
    case Command::kRpush:
    case Command::kLpop:
    case Command::kRpop:
    case Command::kLlen:
    case Command::kLset:
    case Command::kLrem:
    case Command::kLinsert:
    case Command::kLrange:
      return Kind::kList;
    case Command::kSadd:
    case Command::kSrem:
    case Command::kSmembers:
    case Command::kScard:
    case Command::kSismember:
      return Kind::kSet;
    case Command::kZadd:
    case Command::kZrem:
    case Command::kZcard:
    case Command::kZrank:
    case Command::kZscore:
    case Command::kZcount:
    case Command::kZrange:
    case Command::kZrangebyscore:
    case Command::kZremrangebyscore:
    case Command::kZremrangebyrank:
      return Kind::kSortedSet;
    default:
      return Kind::kSingle;
  }
}

void refuse(Notice& notice, std::string text) {
  notice.status = VU_MOM_FAILED;
  notice.error = std::move(text);
  notice.type_code = VU_MOM_TYPE_NONE;
  notice.content = Content();
}

std::string wrong_kind(Kind found, Kind wanted) {
  return std::string("the object is ") + name_of(found) + ", not " + name_of(wanted);
}

// With what a server begins its error where a command was refused before it did anything.
constexpr std::string_view kRefusals[] = {"BUSY ",
                                          "CLUSTERDOWN ",
                                          "LOADING ",
                                          "MASTERDOWN ",
                                          "MISCONF ",
                                          "NOAUTH ",
                                          "NOPERM ",
                                          "NOREPLICAS ",
                                          "OOM ",
                                          "READONLY ",
                                          "TRYAGAIN ",
                                          "CROSSSLOT ",
                                          "MOVED ",
                                          "ASK ",
                                          "WRONGPASS ",
                                          "NOSCRIPT ",
                                          "ERR Function not found",
                                          "ERR Protocol error",
                                          "ERR unknown command",
                                          "ERR max number of clients"};

std::string explain(std::string_view error, Command command) {
  if (error.starts_with("VUKIND ")) {
    return wrong_kind(kind_of(error.substr(7)), wanted_kind(command));
  }
  if (error == "VUOWNER held") return "another owner holds the object";
  if (error == "VUOWNER other") return "the object is not this owner's";
  if (error == "VUCOUNT") return "the counter is at its largest value";
  const bool is_refused =
      only_reads(command) ||
      std::any_of(std::begin(kRefusals), std::end(kRefusals),
                  [error](std::string_view start) { return error.starts_with(start); });
  return (is_refused ? "not done: the server says: " : "unknown: the server says: ") +
         std::string(error);
}

// Fields of a flat list of numbers and records; named: all the tags, with or without records.
Content hash_content(const redisReply& reply, const std::vector<std::uint32_t>& named) {
  std::vector<Field> fields;
  for (std::size_t i = 0; i < size_of(reply); i += 2) {
    fields.push_back({to_field_number(text_of(element_of(reply, i))),
                      std::string(text_of(element_of(reply, i + 1)))});
  }
  std::sort(fields.begin(), fields.end(),
            [](const Field& one, const Field& other) { return one.number < other.number; });
  Content content = content_of(fields);
  if (!named.empty()) content.tags = named;
  return content;
}

Content messages_content(const redisReply& reply) {
  Content content;
  content.form = Content::Form::kMessages;
  for (std::size_t i = 0; i < size_of(reply); ++i) content.items.add(text_of(element_of(reply, i)));
  return content;
}

Content scored_content(const redisReply& reply) {
  Content content;
  content.form = Content::Form::kScored;
  for (std::size_t i = 0; i < size_of(reply); i += 2) {
    content.items.add(text_of(element_of(reply, i)));
    content.scores.push_back(to_score(text_of(element_of(reply, i + 1))));
  }
  return content;
}

// A value read natively: beside it what its meta key says, and whether it is alive where it
// has a deadline.
void decode_get(const redisReply& reply, Notice& notice) {
  const redisReply& value = element_of(reply, 0);
  const redisReply& meta_reply = element_of(reply, 1);
  const redisReply& live = element_of(reply, 2);
  if (!is_nil(meta_reply)) {
    const std::string_view meta = text_of(meta_reply);
    const std::size_t colon = meta.find(':');
    if (colon == std::string_view::npos) throw BadReply("no meta key");
    const bool has_deadline = meta.substr(colon + 1, 1) != ":";
    if (has_deadline && is_nil(live)) return;
    const Kind kind = kind_of(meta.substr(0, colon));
    if (kind != Kind::kSingle) return refuse(notice, wrong_kind(kind, Kind::kSingle));
  }
  if (is_nil(value)) return;
  notice.type_code = VU_MOM_TYPE_SET;
  notice.content.items.add(text_of(value));
  notice.content.form = Content::Form::kMessage;
}

std::int64_t two_halves(const redisReply& reply) {
  const auto high = static_cast<std::uint64_t>(integer_of(element_of(reply, 0)));
  const auto low = static_cast<std::uint64_t>(integer_of(element_of(reply, 1)));
  return static_cast<std::int64_t>(high << 32 | low);
}

// The identities from `first` on.
void decode_level(const RequestHead& request, const redisReply& reply, std::size_t first,
                  Notice& notice, ByteList& identities) {
  std::vector<std::string> found;
  for (std::size_t i = first; i < size_of(reply); ++i) {
    std::string identity;
    if (!identity_from_text(*request.type, text_of(element_of(reply, i)), identity)) {
      throw BadReply("no identity of its type");
    }
    found.push_back(std::move(identity));
  }
  std::sort(found.begin(), found.end());
  for (const std::string& identity : found) identities.add(identity);
  notice.count = static_cast<std::int64_t>(found.size());
}

void decode_value(const RequestHead& request, const redisReply& reply, Notice& notice,
                  ByteList& identities) {
  switch (request.command) {
    case Command::kGet:
      return decode_get(reply, notice);
    case Command::kIncr:
      notice.content = Content::of_integer(two_halves(reply));
      return;
    case Command::kHmget:
    case Command::kHgetall:
      if (is_nil(reply)) return;
      notice.type_code = VU_MOM_TYPE_HMSET;
      notice.content = hash_content(reply, request.tags);
      return;
    case Command::kLpop:
    case Command::kRpop:
      if (is_nil(reply)) return;
      notice.type_code = request.command == Command::kLpop ? VU_MOM_TYPE_LPOP : VU_MOM_TYPE_RPOP;
      notice.content = Content::of_message(text_of(reply));
      return;
    case Command::kLrange:
      notice.type_code = VU_MOM_TYPE_LPUSH;
      notice.content = messages_content(reply);
      return;
    case Command::kSmembers:
      notice.type_code = VU_MOM_TYPE_SADD;
      notice.content = messages_content(reply);
      return;
    case Command::kZrange:
    case Command::kZrangebyscore:
      notice.type_code = VU_MOM_TYPE_ZADD;
      notice.content = scored_content(reply);
      return;
    case Command::kZrank:
      if (!is_nil(reply)) notice.content = Content::of_integer(integer_of(reply));
      return;
    case Command::kZscore:
      if (!is_nil(reply)) notice.content = Content::of_score(to_score(text_of(reply)));
      return;
    case Command::kPexpire:
    case Command::kDelExpire:
    case Command::kPdel:
      return decode_level(request, reply, 0, notice, identities);
    case Command::kPexpireFields: {
      const bool others = integer_of(element_of(reply, 0)) != 0;
      decode_level(request, reply, 1, notice, identities);
      if (others && notice.count == 0) {
        refuse(notice, "the object is not a hash; its fields have no lifetimes");
      }
      return;
    }
    default:
      notice.content = Content::of_integer(integer_of(reply));
  }
}

void start(Notice& notice, const RequestHead& request, std::int64_t time_us) {
  notice.time_us = time_us;
  notice.db = request.db;
  notice.end_mark = end_mark_of(request.command);
}

void read_scanned(const Request& request, const redisReply& reply, std::int64_t time_us,
                  std::vector<Notice>& objects, std::string& position) {
  const bool keys_only = request.command == Command::kScanIndex;
  const std::size_t step = keys_only ? 1 : 3;
  for (std::size_t i = 1; i < size_of(reply); i += step) {
    Notice notice;
    notice.time_us = time_us;
    notice.db = request.db;
    notice.names_object = true;
    if (!identity_from_text(*request.type, text_of(element_of(reply, i)), notice.identity)) {
      throw BadReply("no identity of its type");
    }
    if (keys_only) {
      notice.type_code = VU_MOM_TYPE_INDEX;
      notice.content = Content::of_message({});
      objects.push_back(std::move(notice));
      continue;
    }
    const Kind kind = kind_of(text_of(element_of(reply, i + 1)));
    const redisReply& value = element_of(reply, i + 2);
    notice.type_code = code_of(kind);
    switch (kind) {
      case Kind::kSingle:
        notice.content = Content::of_message(text_of(value));
        break;
      case Kind::kHash:
        notice.content = hash_content(value, {});
        break;
      case Kind::kList:
      case Kind::kSet:
        notice.content = messages_content(value);
        break;
      case Kind::kSortedSet:
        notice.content = scored_content(value);
        break;
    }
    objects.push_back(std::move(notice));
  }
  position = text_of(element_of(reply, 0));
}

}  // namespace

Notice decode(const RequestHead& request, const redisReply& reply, std::int64_t time_us,
              ByteList& identities) {
  Notice notice;
  decode_nameless(request, reply, time_us, notice, identities);
  notice.identity = request.identity;
  return notice;
}

void decode_nameless(const RequestHead& request, const redisReply& reply, std::int64_t time_us,
                     Notice& notice, ByteList& identities) {
  start(notice, request, time_us);
  notice.names_object = true;
  try {
    if (reply.type == REDIS_REPLY_ERROR) {
      const std::string_view error(reply.str, static_cast<std::size_t>(reply.len));
      refuse(notice, explain(error, request.command));
    } else {
      decode_value(request, reply, notice, identities);
    }
  } catch (const BadReply& bad) {
    identities = ByteList();
    notice.count = 0;
    refuse(notice, std::string("unknown: the server's reply makes no sense: ") + bad.what());
  }
}

bool decode_scan(const Request& request, const redisReply& reply, std::int64_t time_us,
                 std::vector<Notice>& objects, std::string& position, Notice& last) {
  const std::size_t before = objects.size();
  std::string text;
  try {
    if (reply.type != REDIS_REPLY_ERROR) {
      read_scanned(request, reply, time_us, objects, position);
      return true;
    }
    const std::string_view error(reply.str, static_cast<std::size_t>(reply.len));
    text = explain(error, request.command);
  } catch (const BadReply& bad) {
    text = std::string("not done: the server's reply makes no sense: ") + bad.what();
  }
  objects.erase(objects.begin() + static_cast<std::ptrdiff_t>(before), objects.end());
  last = Notice();
  start(last, request, time_us);
  refuse(last, std::move(text));
  return false;
}

bool says_function_is_missing(const redisReply& reply) {
  return reply.type == REDIS_REPLY_ERROR &&
         std::string_view(reply.str, static_cast<std::size_t>(reply.len))
             .starts_with("ERR Function not found");
}

}  // namespace vu::store
