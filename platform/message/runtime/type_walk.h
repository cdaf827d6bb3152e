// Questions to a message type and all types within it.
#pragma once

#include <google/protobuf/descriptor.h>

#include <set>

namespace vu {

template <typename Predicate>
bool anywhere(const google::protobuf::Descriptor& type, const Predicate& holds,
              std::set<const google::protobuf::Descriptor*>& seen) {
  if (!seen.insert(&type).second) return false;
  if (holds(type)) return true;
  for (int i = 0; i < type.field_count(); ++i) {
    const google::protobuf::Descriptor* within = type.field(i)->message_type();
    if (within != nullptr && anywhere(*within, holds, seen)) return true;
  }
  return false;
}

// Whether `holds` is true of a type or of a message type within it, at any depth.
template <typename Predicate>
bool anywhere(const google::protobuf::Descriptor& type, const Predicate& holds) {
  std::set<const google::protobuf::Descriptor*> seen;
  return anywhere(type, holds, seen);
}

}  // namespace vu
