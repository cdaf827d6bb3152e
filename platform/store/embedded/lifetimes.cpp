#include "lifetimes.h"

#include <algorithm>
#include <utility>

namespace vu::store {

void Lifetimes::insert(const Due& due, Ticket ticket) noexcept {
  ticket.value() = due;
  entries_.insert(std::move(ticket));
}

void Lifetimes::set(Extra& extra, std::int64_t deadline, Ticket ticket) noexcept {
  clear(extra);
  extra.deadline = deadline;
  insert(Due{deadline, &extra, 0}, std::move(ticket));
}

void Lifetimes::set_field(Extra& extra, std::uint32_t tag, std::int64_t deadline,
                          Ticket ticket) noexcept {
  clear_field(extra, tag);
  extra.fields.push_back({tag, deadline});
  insert(Due{deadline, &extra, tag}, std::move(ticket));
}

void Lifetimes::clear(Extra& extra) noexcept {
  if (extra.deadline == kNever) return;
  entries_.erase(Due{extra.deadline, &extra, 0});
  extra.deadline = kNever;
}

void Lifetimes::clear_field(Extra& extra, std::uint32_t tag) noexcept {
  const auto field = std::find_if(extra.fields.begin(), extra.fields.end(),
                                  [tag](const auto& one) { return one.tag == tag; });
  if (field == extra.fields.end()) return;
  entries_.erase(Due{field->deadline, &extra, tag});
  extra.fields.erase(field);
}

void Lifetimes::clear_all(Extra& extra) noexcept {
  clear(extra);
  while (!extra.fields.empty()) clear_field(extra, extra.fields.back().tag);
}

}  // namespace vu::store
