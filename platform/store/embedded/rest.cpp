// Commands that are being built; they answer VU_MOM_FAILED.
#include <stdexcept>

#include "run.h"

namespace vu::store {

namespace {
[[noreturn]] void not_built() { throw std::logic_error("not built"); }
}  // namespace

void Run::hmset() { not_built(); }
void Run::hmsetnx() { not_built(); }
void Run::hmupdate() { not_built(); }
void Run::hmget() { not_built(); }
void Run::push(bool) { not_built(); }
void Run::pop(bool) { not_built(); }
void Run::llen() { not_built(); }
void Run::lset() { not_built(); }
void Run::lrem() { not_built(); }
void Run::linsert() { not_built(); }
void Run::lrange() { not_built(); }
void Run::sadd() { not_built(); }
void Run::srem() { not_built(); }
void Run::smembers() { not_built(); }
void Run::scard() { not_built(); }
void Run::sismember() { not_built(); }
void Run::zadd() { not_built(); }
void Run::zrem() { not_built(); }
void Run::zcard() { not_built(); }
void Run::zrank() { not_built(); }
void Run::zscore() { not_built(); }
void Run::zcount() { not_built(); }
void Run::zrange() { not_built(); }
void Run::zrangebyscore() { not_built(); }
void Run::zremrangebyscore() { not_built(); }
void Run::zremrangebyrank() { not_built(); }
void Run::scan(bool) { not_built(); }
void Run::pexpire() { not_built(); }
void Run::pexpire_fields() { not_built(); }
void Run::del_expire() { not_built(); }
void Run::pdel() { not_built(); }
void Run::subscribe() { not_built(); }
void Run::unsubscribe() { not_built(); }
void Run::publish() { not_built(); }

}  // namespace vu::store
