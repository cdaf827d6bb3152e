#include "run.h"

#include <memory>
#include <utility>

namespace vu::store {

std::int32_t Run::execute() {
  try {
    dispatch();
  } catch (const WrongKind& wrong) {
    reply_error(std::string("the object is ") + name_of(wrong.found) + ", not " +
                name_of(wrong.wanted));
  }
  outbox_.post();
  return VU_MOM_OK;
}

Cell Run::find_kind(Kind kind) {
  const Cell cell = find();
  if (cell != 0 && object(cell).kind() != kind) throw WrongKind{kind, object(cell).kind()};
  return cell;
}

Notice Run::reply_notice() const {
  Notice notice;
  notice.time_us = store_.calendar();
  notice.db = request_.db;
  notice.names_object = request_.type != nullptr;
  notice.identity = request_.identity;
  return notice;
}

void Run::reply(Content content, std::int32_t type_code) {
  if (!request_.receiver.wanted()) return;
  Notice notice = reply_notice();
  notice.type_code = type_code;
  notice.content = std::move(content);
  outbox_.add(session_, std::make_unique<ReplyDelivery>(request_.receiver, std::move(notice)));
}

void Run::reply_error(std::string text) {
  if (!request_.receiver.wanted()) return;
  Notice notice = reply_notice();
  notice.status = VU_MOM_FAILED;
  notice.error = std::move(text);
  outbox_.add(session_, std::make_unique<ReplyDelivery>(request_.receiver, std::move(notice)));
}

void Run::dispatch() {
  switch (request_.command) {
    case Command::kGet:
      return get();
    case Command::kIncr:
      return incr();
    case Command::kSetnx:
      return setnx();
    case Command::kSet:
      return set();
    case Command::kSetow:
      return setow();
    case Command::kDelow:
      return delow();
    case Command::kDel:
      return del();
    case Command::kHmset:
      return hmset();
    case Command::kHmsetnx:
      return hmsetnx();
    case Command::kHmupdate:
      return hmupdate();
    case Command::kHmget:
    case Command::kHgetall:
      return hmget();
    case Command::kScan:
      return scan(false);
    case Command::kScanIndex:
      return scan(true);
    case Command::kLpush:
      return push(true);
    case Command::kRpush:
      return push(false);
    case Command::kLpop:
      return pop(true);
    case Command::kRpop:
      return pop(false);
    case Command::kLlen:
      return llen();
    case Command::kLset:
      return lset();
    case Command::kLrem:
      return lrem();
    case Command::kLinsert:
      return linsert();
    case Command::kLrange:
      return lrange();
    case Command::kSadd:
      return sadd();
    case Command::kSrem:
      return srem();
    case Command::kSmembers:
      return smembers();
    case Command::kScard:
      return scard();
    case Command::kSismember:
      return sismember();
    case Command::kZadd:
      return zadd();
    case Command::kZrem:
      return zrem();
    case Command::kZcard:
      return zcard();
    case Command::kZrank:
      return zrank();
    case Command::kZscore:
      return zscore();
    case Command::kZcount:
      return zcount();
    case Command::kZrange:
      return zrange();
    case Command::kZrangebyscore:
      return zrangebyscore();
    case Command::kZremrangebyscore:
      return zremrangebyscore();
    case Command::kZremrangebyrank:
      return zremrangebyrank();
    case Command::kPexpire:
      return pexpire();
    case Command::kPexpireFields:
      return pexpire_fields();
    case Command::kDelExpire:
      return del_expire();
    case Command::kPdel:
      return pdel();
    case Command::kSubscribe:
      return subscribe();
    case Command::kUnsubscribe:
      return unsubscribe();
    case Command::kPublish:
      return publish();
  }
}

}  // namespace vu::store
