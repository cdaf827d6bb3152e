// Sets. A set without members is gone, without an event of its own.
#include <memory>
#include <utility>

#include "contents.h"
#include "run.h"

namespace vu::store {

void Run::sadd() {
  const Cell cell = find_kind(Kind::kSet);
  if (cell != 0 && body<SetBody>(cell).find(request_.value) != nullptr) return reply_integer(0);
  reply_integer(1);
  tell(VU_MOM_TYPE_SADD, [this] { return Content::of_element(request_.value); });

  std::unique_ptr<Body> made;
  if (cell == 0) made = std::make_unique<SetBody>(store_.slab());
  SetBody& set = cell == 0 ? *static_cast<SetBody*>(made.get()) : body<SetBody>(cell);
  set.members.prepare_insert([&](Cell member) { return hash_of(set.bytes_of(member)); });
  set.members.insert(hash_of(request_.value), set.make(request_.value));
  std::unique_ptr<Extra> extra;
  if (cell == 0) shelf().add(Kind::kSet, request_.identity, {}, extra, made);
}

void Run::srem() {
  const Cell cell = find_kind(Kind::kSet);
  Cell* const slot = cell == 0 ? nullptr : body<SetBody>(cell).find(request_.value);
  if (slot == nullptr) return reply_integer(0);
  reply_integer(1);
  tell(VU_MOM_TYPE_SREM, [this] { return Content::of_element(request_.value); });
  SetBody& set = body<SetBody>(cell);
  store_.slab().release(*slot);
  set.members.erase(slot);
  if (set.size() == 0) shelf().remove(cell);
}

void Run::smembers() {
  const Cell cell = find_kind(Kind::kSet);
  if (cell != 0) return reply(content_of(object(cell)), VU_MOM_TYPE_SADD);
  Content none;
  none.form = Content::Form::kMessages;
  reply(std::move(none), VU_MOM_TYPE_SADD);
}

void Run::scard() {
  const Cell cell = find_kind(Kind::kSet);
  reply_integer(cell == 0 ? 0 : static_cast<std::int64_t>(body<SetBody>(cell).size()));
}

void Run::sismember() {
  const Cell cell = find_kind(Kind::kSet);
  reply_integer(cell != 0 && body<SetBody>(cell).find(request_.value) != nullptr ? 1 : 0);
}

}  // namespace vu::store
