// One command being carried out. The functions are in the file of their kind of value.
//
// Each follows one order, so that memory running short at any point changes nothing:
// find the object; gather the reply and the events; make what will be stored; then,
// by steps that cannot fail, put it into place.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "../request.h"
#include "embedded_engine.h"
#include "outbox.h"
#include "store.h"

namespace vu::store {

class Run {
 public:
  Run(EmbeddedEngine& engine, Store& store, Session& session, Request& request)
      : engine_(engine), store_(store), session_(session), request_(request) {}

  std::int32_t execute();

 private:
  // Thrown by find_kind: the object is of another kind than the command's.
  struct WrongKind {
    Kind wanted;
    Kind found;
  };

  void dispatch();

  // values.cpp
  void get();
  void incr();
  void setnx();
  void set();
  void setow();
  void delow();
  void del();
  Cell store_single(Cell existing, std::int32_t type_code);
  void tell_single(std::string_view old_value, bool existed, std::string_view value,
                   std::int32_t type_code);

  // hashes.cpp
  void hmset();
  void hmsetnx();
  void hmupdate();
  void hmget();
  void write_fields(Cell existing, std::int32_t type_code);

  // lists.cpp
  void push(bool front);
  void pop(bool front);
  void llen();
  void lset();
  void lrem();
  void linsert();
  void lrange();

  // sets.cpp
  void sadd();
  void srem();
  void smembers();
  void scard();
  void sismember();

  // sorted_sets.cpp
  void zadd();
  void zrem();
  void zcard();
  void zrank();
  void zscore();
  void zcount();
  void zrange();
  void zrangebyscore();
  void zremrangebyscore();
  void zremrangebyrank();
  void remove_members(Cell cell, const std::vector<Cell>& members, std::int32_t type_code);

  // levels.cpp
  void scan(bool keys_only);
  void pexpire();
  void pexpire_fields();
  void del_expire();
  void pdel();
  void subscribe();
  void unsubscribe();
  void publish();
  std::string_view prefix() const;
  std::vector<Cell> matching();
  void reply_on_level(const std::vector<Cell>& cells, std::uint32_t end_mark,
                      std::string error = {});
  void remove_all(const std::vector<Cell>& cells, std::int32_t type_code);

  Shelf& shelf() {
    if (shelf_ == nullptr) shelf_ = &store_.shelf(request_.db, *request_.type);
    return *shelf_;
  }
  // The object that the request names, or 0.
  Cell find() { return store_.find(shelf(), request_.identity); }
  // The same, of this kind.
  Cell find_kind(Kind kind);
  Object object(Cell cell) { return shelf().object(cell); }
  template <typename SomeBody>
  SomeBody& body(Cell cell) {
    return object(cell).body_as<SomeBody>();
  }

  // The reply, where one is asked for.
  void reply(Content content, std::int32_t type_code = VU_MOM_TYPE_NONE);
  void reply_integer(std::int64_t value) {
    if (request_.receiver.wanted()) reply(Content::of_integer(value));
  }
  void reply_error(std::string text);
  Notice reply_notice() const;
  // An event of the request's object, for those who watch the whole of it.
  template <typename MakeContent>
  std::size_t tell(std::int32_t type_code, MakeContent content) {
    return store_.tell(outbox_, shelf(), request_.identity, 0, type_code, content);
  }
  template <typename MakeContent>
  void tell_field(std::uint32_t tag, std::int32_t type_code, MakeContent content) {
    store_.tell(outbox_, shelf(), request_.identity, tag, type_code, content);
  }

  EmbeddedEngine& engine_;
  Store& store_;
  Session& session_;
  Request& request_;
  Shelf* shelf_ = nullptr;
  Outbox outbox_;
};

}  // namespace vu::store
