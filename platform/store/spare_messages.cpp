#include "spare_messages.h"

#include <algorithm>
#include <utility>

#include "plain_codec.h"
#include "recycled.h"

namespace vu::store {

namespace {

// A message with longer texts is not kept.
constexpr std::size_t kMostRoom = 512;

}  // namespace

std::unique_ptr<google::protobuf::Message> SpareMessages::take() {
  if (count_ != 0) return std::move(kept_[--count_]);
  return std::unique_ptr<google::protobuf::Message>(prototype_.New());
}

void SpareMessages::give(std::unique_ptr<google::protobuf::Message> message) noexcept {
  if (count_ == std::min(kMost, kMostKept)) return;
  if (plain::clear(*message, fields_, kMostRoom)) kept_[count_++] = std::move(message);
}

}  // namespace vu::store
