// Lists. A list without elements is gone, without an event of its own.
#include <algorithm>
#include <memory>
#include <utility>

#include "contents.h"
#include "run.h"

namespace vu::store {

void Run::push(bool front) {
  const Cell cell = find_kind(Kind::kList);
  const std::size_t length = cell == 0 ? 0 : body<ListBody>(cell).size();
  reply_integer(static_cast<std::int64_t>(length + 1));
  tell(front ? VU_MOM_TYPE_LPUSH : VU_MOM_TYPE_RPUSH,
       [this] { return Content::of_element(request_.value); });
  if (cell == 0) {
    auto list = std::make_unique<ListBody>();
    list->elements.push_back(std::move(request_.value));
    std::unique_ptr<Body> made = std::move(list);
    std::unique_ptr<Extra> extra;
    shelf().add(Kind::kList, request_.identity, {}, extra, made);
  } else if (front) {
    body<ListBody>(cell).elements.push_front(std::move(request_.value));
  } else {
    body<ListBody>(cell).elements.push_back(std::move(request_.value));
  }
}

void Run::pop(bool front) {
  const Cell cell = find_kind(Kind::kList);
  if (cell == 0) return reply(Content());
  const std::int32_t type_code = front ? VU_MOM_TYPE_LPOP : VU_MOM_TYPE_RPOP;
  auto& elements = body<ListBody>(cell).elements;
  const std::string& element = front ? elements.front() : elements.back();
  reply(Content::of_message(element), type_code);
  tell(type_code, [&] { return Content::of_element(element); });
  if (elements.size() == 1) {
    shelf().remove(cell);
  } else if (front) {
    elements.pop_front();
  } else {
    elements.pop_back();
  }
}

void Run::llen() {
  const Cell cell = find_kind(Kind::kList);
  reply_integer(cell == 0 ? 0 : static_cast<std::int64_t>(body<ListBody>(cell).size()));
}

void Run::lset() {
  const Cell cell = find_kind(Kind::kList);
  if (cell == 0) return reply_integer(0);
  auto& elements = body<ListBody>(cell).elements;
  const Range at = range_of(request_.start, request_.start, elements.size());
  if (at.count == 0) return reply_integer(0);
  reply_integer(1);
  tell(VU_MOM_TYPE_LSET, [this] { return Content::of_element(request_.value); });
  std::swap(elements[at.first], request_.value);
}

void Run::lrem() {
  const Cell cell = find_kind(Kind::kList);
  if (cell == 0) return reply_integer(0);
  auto& elements = body<ListBody>(cell).elements;
  const auto equal =
      static_cast<std::uint64_t>(std::count(elements.begin(), elements.end(), request_.value));
  std::uint64_t left = request_.count == 0 ? equal : std::min(equal, request_.count);
  reply_integer(static_cast<std::int64_t>(left));
  if (left == 0) return;
  tell(VU_MOM_TYPE_LREM, [&] {
    Content content;
    content.form = Content::Form::kMessages;
    for (std::uint64_t i = 0; i < left; ++i) content.items.add(request_.value);
    return content;
  });
  elements.erase(std::remove_if(elements.begin(), elements.end(),
                                [&](const std::string& element) {
                                  if (left == 0 || element != request_.value) return false;
                                  --left;
                                  return true;
                                }),
                 elements.end());
  if (elements.empty()) shelf().remove(cell);
}

// Replies with the new length; 0 where nothing is stored, -1 where the pivot is not
// among the elements.
void Run::linsert() {
  const Cell cell = find_kind(Kind::kList);
  if (cell == 0) return reply_integer(0);
  auto& elements = body<ListBody>(cell).elements;
  auto place = std::find(elements.begin(), elements.end(), request_.pivot);
  if (place == elements.end()) return reply_integer(-1);
  reply_integer(static_cast<std::int64_t>(elements.size() + 1));
  tell(VU_MOM_TYPE_LINSERT, [this] { return Content::of_element(request_.value); });
  elements.insert(request_.after ? place + 1 : place, std::move(request_.value));
}

void Run::lrange() {
  const Cell cell = find_kind(Kind::kList);
  if (cell == 0) return reply(content_of(ListBody(), 0, 0), VU_MOM_TYPE_LPUSH);
  const auto& list = body<ListBody>(cell);
  const Range range = range_of(request_.start, request_.stop, list.size());
  reply(content_of(list, range.first, range.count), VU_MOM_TYPE_LPUSH);
}

}  // namespace vu::store
