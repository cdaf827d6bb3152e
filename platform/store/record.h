// The record of one delivery with all that it points to, alive while the callback runs.
#pragma once

#include <google/protobuf/message.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "live.h"
#include "notice.h"
#include "subscription.h"
#include "vu_platform.h"

namespace vu::store {

class Record {
 public:
  // Where the messages cannot be made, the record carries no data and says why.
  Record(const Receiver& receiver, const Notice& notice) noexcept;
  Record(const Record&) = delete;
  Record& operator=(const Record&) = delete;
  ~Record();

  const vu_mom_reply* get() const { return &reply_; }

  static bool is_record(std::intptr_t address);
  static bool is_payload(std::intptr_t address);

 private:
  void fill_details(const Notice& notice) noexcept;
  void fill_content(const Receiver& receiver, const Notice& notice);
  void set_error(std::int32_t status, const char* text) noexcept;

  alignas(8) vu_mom_reply reply_ = {};
  vu_platform_payload payload_ = {};
  bool has_payload_ = false;
  std::vector<std::unique_ptr<google::protobuf::Message>> messages_;
  std::vector<vu_mom_message> addresses_;
  std::vector<LiveMessage> live_;
  std::vector<std::size_t> tags_;
  Record* outer_;  // deliveries of different handles may nest
};

}  // namespace vu::store
