// Sorted sets. One without members is gone, without an event of its own.
#include <algorithm>
#include <memory>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "contents.h"
#include "run.h"

namespace vu::store {

namespace {

auto at_member(const SortedSetBody& set, double score, std::string_view bytes) {
  return [&set, score, bytes](Cell member) { return set.compare(member, score, bytes); };
}

void take_rank(SortedSetBody& set, Cell member) noexcept {
  set.ranked.erase(at_member(set, set.score_of(member), set.bytes_of(member)));
}

void erase_member(SortedSetBody& set, Cell member) noexcept {
  take_rank(set, member);
  set.members.erase(set.find(set.bytes_of(member)));
  set.slab.release(member);
}

// The ranks of the members with scores from min to max.
Range ranks_of(const SortedSetBody& set, double min, double max) {
  const std::size_t first =
      set.ranked.rank([&](Cell member) { return set.score_of(member) < min ? -1 : 1; });
  const std::size_t behind =
      set.ranked.rank([&](Cell member) { return set.score_of(member) <= max ? -1 : 1; });
  return {first, behind > first ? behind - first : 0};
}

std::vector<Cell> members_in(const SortedSetBody& set, Range range) {
  std::vector<Cell> members;
  members.reserve(range.count);
  auto cursor = set.ranked.at(range.first);
  for (std::size_t i = 0; i < range.count; ++i, cursor.advance()) members.push_back(*cursor);
  return members;
}

Content no_members() {
  Content content;
  content.form = Content::Form::kScored;
  return content;
}

// A member that a zadd changes.
struct Change {
  std::size_t index;  // in the request
  Cell old_member;    // 0: it is new
  Cell new_member;
};

// What the request changes, each member once: the last score given counts.
std::vector<Change> changes_of(const Request& request, const SortedSetBody* set) {
  std::unordered_map<std::string_view, std::size_t> last;
  const std::size_t count = request.members.size();
  if (count > 1) {
    last.reserve(count);
    for (std::size_t i = 0; i < count; ++i) last[request.members[i]] = i;
  }
  std::vector<Change> changes;
  changes.reserve(count);
  for (std::size_t i = 0; i < count; ++i) {
    const std::string_view bytes = request.members[i];
    if (count > 1 && last[bytes] != i) continue;
    const Cell* const old = set == nullptr ? nullptr : set->find(bytes);
    if (old != nullptr && set->score_of(*old) == request.scores[i]) continue;
    changes.push_back({i, old == nullptr ? 0 : *old, 0});
  }
  return changes;
}

// Makes the new members and ranks them, beside the old ones. Throws std::bad_alloc with
// nothing changed.
void rank_new(SortedSetBody& set, const Request& request, std::vector<Change>& changes) {
  std::size_t ranked = 0;
  try {
    for (Change& change : changes) {
      const double score = request.scores[change.index];
      const std::string_view bytes = request.members[change.index];
      change.new_member = set.make(score, bytes);
      set.ranked.insert(at_member(set, score, bytes), change.new_member);
      ++ranked;
    }
  } catch (...) {
    for (std::size_t i = 0; i < changes.size() && changes[i].new_member != 0; ++i) {
      if (i < ranked) take_rank(set, changes[i].new_member);
      set.slab.release(changes[i].new_member);
    }
    throw;
  }
}

// Puts the new members in the places of the old ones.
void settle(SortedSetBody& set, const std::vector<Change>& changes) noexcept {
  for (const Change& change : changes) {
    const std::string_view bytes = set.bytes_of(change.new_member);
    if (change.old_member == 0) {
      set.members.insert(hash_of(bytes), change.new_member);
      continue;
    }
    *set.find(bytes) = change.new_member;
    take_rank(set, change.old_member);
    set.slab.release(change.old_member);
  }
}

}  // namespace

void Run::zadd() {
  if (request_.members.empty()) return reply_integer(0);
  const Cell cell = find_kind(Kind::kSortedSet);
  std::unique_ptr<Body> made;
  if (cell == 0) made = std::make_unique<SortedSetBody>(store_.slab());
  SortedSetBody& set =
      cell == 0 ? *static_cast<SortedSetBody*>(made.get()) : body<SortedSetBody>(cell);

  std::vector<Change> changes = changes_of(request_, &set);
  const auto added = static_cast<std::size_t>(std::count_if(
      changes.begin(), changes.end(), [](const Change& one) { return one.old_member == 0; }));
  reply_integer(static_cast<std::int64_t>(added));
  if (changes.empty()) return;
  tell(VU_MOM_TYPE_ZADD, [&] {
    Content content = no_members();
    for (const Change& change : changes) {
      content.items.add(request_.members[change.index]);
      content.scores.push_back(request_.scores[change.index]);
    }
    return content;
  });
  set.members.prepare_inserts(added, [&](Cell member) { return hash_of(set.bytes_of(member)); });
  rank_new(set, request_, changes);
  settle(set, changes);
  std::unique_ptr<Extra> extra;
  if (cell == 0) shelf().add(Kind::kSortedSet, request_.identity, {}, extra, made);
}

void Run::zrem() {
  if (request_.members.empty()) return reply_integer(0);
  const Cell cell = find_kind(Kind::kSortedSet);
  std::vector<Cell> members;
  if (cell != 0) {
    for (std::size_t i = 0; i < request_.members.size(); ++i) {
      const Cell* const member = body<SortedSetBody>(cell).find(request_.members[i]);
      if (member != nullptr) members.push_back(*member);
    }
    std::sort(members.begin(), members.end());
    members.erase(std::unique(members.begin(), members.end()), members.end());
  }
  remove_members(cell, members, VU_MOM_TYPE_ZREM);
}

void Run::remove_members(Cell cell, const std::vector<Cell>& members, std::int32_t type_code) {
  reply_integer(static_cast<std::int64_t>(members.size()));
  if (members.empty()) return;
  SortedSetBody& set = body<SortedSetBody>(cell);
  tell(type_code, [&] { return content_of(set, members); });
  for (const Cell member : members) erase_member(set, member);
  if (set.size() == 0) shelf().remove(cell);
}

void Run::zcard() {
  const Cell cell = find_kind(Kind::kSortedSet);
  reply_integer(cell == 0 ? 0 : static_cast<std::int64_t>(body<SortedSetBody>(cell).size()));
}

void Run::zrank() {
  const Cell cell = find_kind(Kind::kSortedSet);
  const Cell* const member = cell == 0 ? nullptr : body<SortedSetBody>(cell).find(request_.value);
  if (member == nullptr) return reply(Content());
  const SortedSetBody& set = body<SortedSetBody>(cell);
  reply_integer(static_cast<std::int64_t>(
      set.ranked.rank(at_member(set, set.score_of(*member), request_.value))));
}

void Run::zscore() {
  const Cell cell = find_kind(Kind::kSortedSet);
  const Cell* const member = cell == 0 ? nullptr : body<SortedSetBody>(cell).find(request_.value);
  if (member == nullptr) return reply(Content());
  reply(Content::of_score(body<SortedSetBody>(cell).score_of(*member)));
}

void Run::zcount() {
  const Cell cell = find_kind(Kind::kSortedSet);
  if (cell == 0) return reply_integer(0);
  const Range range = ranks_of(body<SortedSetBody>(cell), request_.min, request_.max);
  reply_integer(static_cast<std::int64_t>(range.count));
}

void Run::zrange() {
  const Cell cell = find_kind(Kind::kSortedSet);
  if (cell == 0) return reply(no_members(), VU_MOM_TYPE_ZADD);
  const SortedSetBody& set = body<SortedSetBody>(cell);
  const Range range = range_of(request_.start, request_.stop, set.size());
  reply(content_of(set, members_in(set, range)), VU_MOM_TYPE_ZADD);
}

void Run::zrangebyscore() {
  const Cell cell = find_kind(Kind::kSortedSet);
  if (cell == 0) return reply(no_members(), VU_MOM_TYPE_ZADD);
  const SortedSetBody& set = body<SortedSetBody>(cell);
  const Range range = ranks_of(set, request_.min, request_.max);
  reply(content_of(set, members_in(set, range)), VU_MOM_TYPE_ZADD);
}

void Run::zremrangebyscore() {
  const Cell cell = find_kind(Kind::kSortedSet);
  if (cell == 0) return reply_integer(0);
  const SortedSetBody& set = body<SortedSetBody>(cell);
  remove_members(cell, members_in(set, ranks_of(set, request_.min, request_.max)),
                 VU_MOM_TYPE_ZREMRANGEBYSCORE);
}

void Run::zremrangebyrank() {
  const Cell cell = find_kind(Kind::kSortedSet);
  if (cell == 0) return reply_integer(0);
  const SortedSetBody& set = body<SortedSetBody>(cell);
  remove_members(cell, members_in(set, range_of(request_.start, request_.stop, set.size())),
                 VU_MOM_TYPE_ZREMRANGEBYRANK);
}

}  // namespace vu::store
