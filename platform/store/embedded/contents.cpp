#include "contents.h"

#include <algorithm>

namespace vu::store {

std::int32_t code_of(Kind kind) {
  switch (kind) {
    case Kind::kSingle:
      return VU_MOM_TYPE_SET;
    case Kind::kHash:
      return VU_MOM_TYPE_HMSET;
    case Kind::kList:
      return VU_MOM_TYPE_LPUSH;
    case Kind::kSet:
      return VU_MOM_TYPE_SADD;
    case Kind::kSortedSet:
      return VU_MOM_TYPE_ZADD;
  }
  return VU_MOM_TYPE_NONE;
}

Content content_of(const std::vector<Field>& fields) {
  Content content;
  content.form = Content::Form::kHash;
  std::string records;
  for (const Field& field : fields) {
    records.append(field.records);
    content.tags.push_back(field.number);
  }
  content.items.add(records);
  return content;
}

Content content_of(const ListBody& list, std::size_t first, std::size_t count) {
  Content content;
  content.form = Content::Form::kMessages;
  for (std::size_t i = first; i < first + count; ++i) content.items.add(list.elements[i]);
  return content;
}

Content content_of(const SortedSetBody& set, const std::vector<Cell>& members) {
  Content content;
  content.form = Content::Form::kScored;
  content.scores.reserve(members.size());
  for (const Cell member : members) {
    content.items.add(set.bytes_of(member));
    content.scores.push_back(set.score_of(member));
  }
  return content;
}

Content content_of(const Object& object) {
  Content content;
  switch (object.kind()) {
    case Kind::kSingle:
      return Content::of_message(object.value());
    case Kind::kHash:
      return content_of(object.body_as<HashBody>().fields);
    case Kind::kList: {
      const auto& list = object.body_as<ListBody>();
      return content_of(list, 0, list.size());
    }
    case Kind::kSet: {
      const auto& set = object.body_as<SetBody>();
      content.form = Content::Form::kMessages;
      set.members.for_each([&](Cell member) { content.items.add(set.bytes_of(member)); });
      return content;
    }
    case Kind::kSortedSet: {
      const auto& set = object.body_as<SortedSetBody>();
      content.form = Content::Form::kScored;
      for (auto cursor = set.ranked.at(0); !cursor.at_end(); cursor.advance()) {
        content.items.add(set.bytes_of(*cursor));
        content.scores.push_back(set.score_of(*cursor));
      }
      return content;
    }
  }
  return content;
}

Range range_of(std::int32_t start, std::int32_t stop, std::size_t size) {
  const auto end = static_cast<std::int64_t>(size);
  const auto absolute = [end](std::int32_t position) {
    return position < 0 ? position + end : std::int64_t{position};
  };
  const std::int64_t first = std::max<std::int64_t>(absolute(start), 0);
  const std::int64_t last = std::min(absolute(stop), end - 1);
  if (first > last) return {};
  return {static_cast<std::size_t>(first), static_cast<std::size_t>(last - first + 1)};
}

}  // namespace vu::store
