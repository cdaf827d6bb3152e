// The store as a plain program on standard containers: what every command does, replies
// and reports. Nothing is shared with the engine, and nothing is fast.
//
// Objects are maps, time is an integer that somebody sets, and nothing waits: a command
// returns its reply, and what subscriptions have to hear is appended to theirs. What ends
// does so the moment that time passes; the store may notice later, which nobody can see.
#pragma once

#include <cstdint>
#include <deque>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace vu::fuzz {

// Field numbers with their serialised records, ascending.
using Fields = std::map<std::uint32_t, std::string>;

// What names an object, with the message type; of one key there is one Name.
struct Name {
  int type = 0;
  std::vector<std::string> components;  // as vu_platform.h encodes them
  std::string identity;                 // all of them
  Fields keys;                          // the key fields that are not at their defaults
};

struct Message {
  const Name* name = nullptr;
  Fields fields;      // what it carries
  std::string bytes;  // its serialisation
};

// The counter of a type. `record` makes the field's record, `value` reads it.
struct CounterField {
  std::uint32_t number = 0;  // 0: there is none
  std::int64_t initial = 0;
  std::int64_t most = 0;
  std::string (*record)(int type, std::int64_t value) = nullptr;
  std::int64_t (*value)(int type, const std::string& record) = nullptr;
};

struct Type {
  std::vector<std::uint32_t> keys;     // field numbers, by position
  std::vector<std::uint32_t> numbers;  // of all fields
  CounterField counter;
};

// What a reply or an event carries.
struct Content {
  enum class Form { kNothing, kMessage, kInteger, kScore, kHash, kMessages, kScored };

  Form form = Form::kNothing;
  std::vector<std::string> messages;
  std::vector<double> scores;
  std::vector<std::uint32_t> tags;
  std::int64_t integer = 0;
  double score = 0;

  static Content of_message(std::string bytes);
  static Content of_integer(std::int64_t value);
  static Content of_score(double value);
  // In an order that stands for all others.
  void sort();
  bool operator==(const Content&) const = default;
};

struct Reply {
  bool failed = false;
  int type_code = 0;
  Content content;
  bool unordered = false;

  static Reply failure();
  static Reply integer(std::int64_t value);
};

struct Event {
  int type_code = 0;
  std::uint32_t tag = 0;
  const Name* name = nullptr;
  std::shared_ptr<const Content> content;
  bool unordered = false;
};

struct Subscription {
  const void* handle = nullptr;
  std::int32_t db = 0;
  int type = 0;
  std::vector<std::string> prefix;
  std::uint32_t field = 0;
  std::deque<Event> expected;
  bool ended = false;   // and nobody has been told
  bool closed = false;  // by closing the handle
};

// A scan under way: what was there from its beginning.
struct Scan {
  std::int32_t db = 0;
  int type = 0;
  std::vector<std::string> prefix;
  std::set<std::string> throughout;  // and has not been delivered
};

class Model {
 public:
  explicit Model(const std::vector<Type>& types) : types_(types) {}

  void advance(std::int64_t microseconds);
  // The store is gone, and made anew.
  void forget();

  Reply get(std::int32_t db, const Message& message);
  Reply set(std::int32_t db, const Message& message, std::int32_t flag);
  Reply setow(std::int32_t db, const Message& message, std::int64_t owner, std::int32_t flag);
  Reply setnx(std::int32_t db, const Message& message);
  Reply incr(std::int32_t db, const Message& message);
  Reply del(std::int32_t db, const Message& message);
  Reply delow(std::int32_t db, const Message& message, std::int64_t owner, std::int32_t flag);

  // `code` is that of hmset, hmsetnx or hmupdate; no tags: what the message carries.
  Reply write_fields(std::int32_t db, const Message& message, const std::set<std::uint32_t>& tags,
                     int code);
  Reply hmget(std::int32_t db, const Message& message, const std::set<std::uint32_t>& tags);

  Reply push(std::int32_t db, const Message& message, int code);
  Reply pop(std::int32_t db, const Message& message, int code);
  Reply llen(std::int32_t db, const Message& message);
  Reply lset(std::int32_t db, const Message& message, std::int32_t position);
  Reply lrem(std::int32_t db, const Message& message, std::size_t count);
  Reply linsert(std::int32_t db, const Message& pivot, const Message& message, std::int32_t order);
  Reply lrange(std::int32_t db, const Message& message, std::int32_t start, std::int32_t stop);

  Reply sadd(std::int32_t db, const Message& message);
  Reply srem(std::int32_t db, const Message& message);
  Reply smembers(std::int32_t db, const Message& message);
  Reply scard(std::int32_t db, const Message& message);
  Reply sismember(std::int32_t db, const Message& message);

  Reply zadd(std::int32_t db, const std::vector<double>& scores,
             const std::vector<const Message*>& members);
  Reply zrem(std::int32_t db, const std::vector<const Message*>& members);
  Reply zcard(std::int32_t db, const Message& message);
  Reply zrank(std::int32_t db, const Message& message);
  Reply zscore(std::int32_t db, const Message& message);
  Reply zcount(std::int32_t db, const Message& message, double min, double max);
  Reply zrange(std::int32_t db, const Message& message, std::int32_t start, std::int32_t stop);
  Reply zrangebyscore(std::int32_t db, const Message& message, double min, double max);
  Reply zremrangebyscore(std::int32_t db, const Message& message, double min, double max);
  Reply zremrangebyrank(std::int32_t db, const Message& message, std::int32_t start,
                        std::int32_t stop);

  // On a level: the identities of the objects acted on, ascending; none: it failed.
  using Acted = std::optional<std::vector<std::string>>;
  Acted pexpire(std::int32_t db, const Message& message, std::uint32_t level,
                std::int64_t microseconds);
  Acted pexpire_fields(std::int32_t db, const Message& message, std::uint32_t level,
                       const std::set<std::uint32_t>& tags, std::int64_t microseconds);
  Acted del_expire(std::int32_t db, const Message& message, std::uint32_t level);
  Acted pdel(std::int32_t db, const Message& message, std::uint32_t level);

  std::shared_ptr<Scan> scan(std::int32_t db, const Message& message, std::uint32_t level);
  // What the scan has to deliver of this object now; none: it does not exist.
  std::optional<Reply> scanned(const Scan& scan, const std::string& identity, bool keys_only) const;

  std::shared_ptr<Subscription> subscribe(const void* handle, std::int32_t db,
                                          const Message& message, std::uint32_t level,
                                          std::uint32_t field);
  void unsubscribe(const void* handle, std::int32_t db, const Message& message, std::uint32_t level,
                   const std::set<std::uint32_t>& fields);
  void close(const void* handle);
  Reply publish(std::int32_t db, const Message& message);

 private:
  enum class Kind { kSingle = 1, kHash = 4, kList = 10, kSet = 18, kSorted = 39 };
  struct Object {
    const Name* name;
    Kind kind;
    Fields fields;                         // of a single value or a hash
    std::vector<Fields> list;              // of a list
    std::set<std::string> members;         // of a set
    std::map<std::string, double> scores;  // of a sorted set
    std::optional<std::int64_t> owner;
    std::int64_t ends = INT64_MAX;
    std::map<std::uint32_t, std::int64_t> field_ends;
  };
  using Place = std::tuple<std::int32_t, int, std::string>;  // db, type, identity
  struct WrongKind {};
  // A command on another kind of object fails, having done nothing.
  template <typename Do>
  static Reply replying(Do run) {
    try {
      return run();
    } catch (const WrongKind&) {
      return Reply::failure();
    }
  }

  static Place place_of(std::int32_t db, const Message& message) {
    return {db, message.name->type, message.name->identity};
  }
  Object* find(const Place& place);
  Object* find(const Place& place, Kind kind);
  Object& put(const Place& place, const Name& name, Kind kind);
  void erase(const Place& place);
  void erase_if_empty(const Place& place);
  void remove(const Place& place, int code);
  void tell_gone(const Place& place, const Object& object, int code);
  bool carries(const Object& object, std::uint32_t number) const;
  std::int64_t tell(const Place& place, const Name& name, int code, Content content,
                    std::uint32_t field = 0, bool unordered = false);
  void expire_field(const Place& place, std::uint32_t number);
  std::vector<Place> matching(std::int32_t db, const Message& message, std::uint32_t level) const;
  Object& store(const Place& place, const Message& message, const Fields& carried, int code,
                bool quiet, const std::vector<std::uint32_t>& watched);
  Reply take(const Place& place, const std::vector<std::pair<double, std::string>>& pairs, int code,
             bool unordered);
  Content content_of(const Object& object) const;

  const std::vector<Type>& types_;
  std::int64_t now_ = 0;
  std::map<Place, Object> objects_;
  std::list<std::shared_ptr<Subscription>> subscriptions_;
  std::list<std::weak_ptr<Scan>> scans_;
};

// The serialisation of a message of these fields that names this object.
std::string message_bytes(const Name& name, const Fields& carried);

}  // namespace vu::fuzz
