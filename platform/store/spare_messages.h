// Messages that nobody needs any more, kept for those that are delivered next: to make a message
// anew, with each of its texts, costs more than to fill it.
#pragma once

#include <google/protobuf/message.h>

#include <array>
#include <cstddef>
#include <memory>

#include "plain_fields.h"

namespace vu::store {

// Those of one type. As all of the library, for one thread at a time.
class SpareMessages {
 public:
  // Both must outlive it.
  SpareMessages(const google::protobuf::Message& prototype, const plain::Fields& fields)
      : prototype_(prototype), fields_(fields) {}

  // An empty message. Throws std::bad_alloc.
  std::unique_ptr<google::protobuf::Message> take();
  // Keeps a message of the type, or deletes it. Nothing of what is in it stays.
  void give(std::unique_ptr<google::protobuf::Message> message) noexcept;

 private:
  static constexpr std::size_t kMost = 16;

  const google::protobuf::Message& prototype_;
  const plain::Fields& fields_;
  std::array<std::unique_ptr<google::protobuf::Message>, kMost> kept_;
  std::size_t count_ = 0;
};

}  // namespace vu::store
