// A command, checked and copied: all that an engine needs, and nothing of messages.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "byte_list.h"
#include "subscription.h"
#include "type_info.h"

namespace vu::store {

enum class Command {
  kGet,
  kIncr,
  kSetnx,
  kSet,
  kSetow,
  kDelow,
  kDel,
  kHmset,
  kHmsetnx,
  kHmupdate,
  kHmget,
  kHgetall,
  kScan,
  kScanIndex,
  kLpush,
  kRpush,
  kLpop,
  kRpop,
  kLlen,
  kLset,
  kLrem,
  kLinsert,
  kLrange,
  kSadd,
  kSrem,
  kSmembers,
  kScard,
  kSismember,
  kZadd,
  kZrem,
  kZcard,
  kZrank,
  kZscore,
  kZcount,
  kZrange,
  kZrangebyscore,
  kZremrangebyscore,
  kZremrangebyrank,
  kPexpire,
  kPexpireFields,
  kDelExpire,
  kPdel,
  kSubscribe,    // one subscription per entry of `subscribers`
  kUnsubscribe,  // one field per entry of `tags`; none: the whole object
  kPublish
};

// One field of a hash: its records in a serialised message, "" where the request names
// the field and the message does not carry it.
struct Field {
  std::uint32_t number = 0;
  std::string records;
};

// Of a request what its replies are made with. Members are set as the command needs them; the
// others keep these values.
struct RequestHead {
  explicit RequestHead(Command which) : command(which) {}

  Command command;
  std::int32_t db = 0;
  const TypeInfo* type = nullptr;
  std::string identity;
  Receiver receiver;
  std::vector<std::uint32_t> tags;  // hmget, lifetimes, unsubscribe: ascending
  std::uint32_t level = 0;          // at most the number of key fields
};

struct Request : RequestHead {
  using RequestHead::RequestHead;

  std::string value;           // stored bytes of the message
  bool quiet = false;          // set, setow, delow
  bool keep_lifetime = false;  // set, setow
  std::int64_t owner = 0;

  std::vector<Field> fields;  // hm*: ascending numbers
  bool named = false;         // hm*: the caller named the fields

  std::string pivot;       // linsert
  bool after = false;      // linsert
  std::int32_t start = 0;  // positions and ranks; lset's position
  std::int32_t stop = 0;
  std::uint64_t count = 0;  // lrem
  double min = 0;
  double max = 0;
  ByteList members;            // zadd, zrem: stored bytes
  std::vector<double> scores;  // zadd

  std::int64_t lifetime_us = 0;

  struct Subscriber {
    std::uint32_t tag = 0;  // 0: the whole object
    Receiver receiver;
  };
  std::vector<Subscriber> subscribers;
};

}  // namespace vu::store
