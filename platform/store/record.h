// The record of one delivery with all that it points to, alive while the callback runs.
#pragma once

#include <google/protobuf/message.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "notice.h"
#include "subscription.h"
#include "vu_platform.h"

namespace vu::store {

class Record {
 public:
  // Where the messages cannot be made, the record carries no data and says why. `notice`
  // must outlive it.
  Record(const Receiver& receiver, const Notice& notice) noexcept;
  Record(const Record&) = delete;
  Record& operator=(const Record&) = delete;
  ~Record();

  const vu_mom_reply* get() const { return &reply_; }

  static bool is_record(std::intptr_t address);
  static bool is_payload(std::intptr_t address);
  // Whether one of the records carries a message there that nobody has taken.
  static bool is_message(std::intptr_t address);
  // The message at this address of a record, or once it was taken, another with the same
  // contents; null where there is none. Throws std::bad_alloc.
  static std::unique_ptr<google::protobuf::Message> take(std::intptr_t address);

 private:
  void fill_details(const Notice& notice) noexcept;
  void fill_content(const Receiver& receiver, const Notice& notice);
  void set_error(std::int32_t status, const char* text) noexcept;
  void make_room(std::size_t count);
  // Which of the messages was made at `address`; as many as there are for none.
  std::size_t index_of(std::intptr_t address) noexcept;

  alignas(8) vu_mom_reply reply_ = {};
  vu_platform_payload payload_ = {};
  bool has_payload_ = false;
  const TypeInfo* type_;
  const Notice& notice_;
  // The messages that were made, and where: messages_[i], null once taken, at addresses_[i].
  // One alone, the usual case, is in the record itself.
  std::unique_ptr<google::protobuf::Message>* messages_ = nullptr;
  vu_mom_message* addresses_ = nullptr;
  std::size_t count_ = 0;
  std::unique_ptr<google::protobuf::Message> only_message_;
  vu_mom_message only_address_ = 0;
  std::vector<std::unique_ptr<google::protobuf::Message>> more_messages_;
  std::vector<vu_mom_message> more_addresses_;
  std::size_t expected_ = 0;  // the one after the last that was looked for
  std::vector<std::size_t> tags_;
  Record* outer_;  // deliveries of different handles may nest
};

}  // namespace vu::store
