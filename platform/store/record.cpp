#include "record.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <limits>
#include <new>
#include <stdexcept>
#include <utility>

#include "message_bytes.h"

namespace vu::store {

namespace {

// The records being delivered, innermost first.
Record* innermost = nullptr;

vu_platform_details& details_of(vu_mom_reply& reply) {
  return *static_cast<vu_platform_details*>(static_cast<void*>(reply.details));
}

std::intptr_t address_of(const void* pointer) { return reinterpret_cast<std::intptr_t>(pointer); }

// Copies text and ends it, between two characters of UTF-8.
void copy_text(char* to, std::size_t room, const char* text) {
  std::size_t size = std::strlen(text);
  if (size >= room) {
    size = room - 1;
    while (size > 0 && (static_cast<unsigned char>(text[size]) & 0xC0) == 0x80) --size;
  }
  std::memcpy(to, text, size);
  to[size] = '\0';
}

}  // namespace

Record::Record(const Receiver& receiver, const Notice& notice) noexcept
    : type_(receiver.type), notice_(notice), outer_(innermost) {
  fill_details(notice);
  reply_.type_code = notice.type_code;
  reply_.end_mark = notice.end_mark;
  try {
    fill_content(receiver, notice);
  } catch (const std::bad_alloc&) {
    set_error(VU_MOM_NO_MEMORY, "out of memory");
  } catch (const std::exception& error) {
    set_error(VU_MOM_FAILED, error.what());
  }
  innermost = this;
}

Record::~Record() {
  innermost = outer_;
  for (std::size_t i = 0; i < count_; ++i) {
    if (messages_[i]) type_->spare->give(std::move(messages_[i]));
  }
}

bool Record::is_record(std::intptr_t address) {
  for (const Record* record = innermost; record != nullptr; record = record->outer_) {
    if (address_of(&record->reply_) == address) return true;
  }
  return false;
}

bool Record::is_payload(std::intptr_t address) {
  for (const Record* record = innermost; record != nullptr; record = record->outer_) {
    if (record->has_payload_ && address_of(&record->payload_) == address) return true;
  }
  return false;
}

// Whoever reads a list asks for its messages in their order.
std::size_t Record::index_of(std::intptr_t address) noexcept {
  for (std::size_t tried = 0; tried < count_; ++tried) {
    const std::size_t index = (expected_ + tried) % count_;
    if (addresses_[index] != address) continue;
    expected_ = index + 1;
    return index;
  }
  return count_;
}

bool Record::is_message(std::intptr_t address) {
  for (Record* record = innermost; record != nullptr; record = record->outer_) {
    const std::size_t index = record->index_of(address);
    if (index != record->count_) return record->messages_[index] != nullptr;
  }
  return false;
}

std::unique_ptr<google::protobuf::Message> Record::take(std::intptr_t address) {
  for (Record* record = innermost; record != nullptr; record = record->outer_) {
    const std::size_t index = record->index_of(address);
    if (index == record->count_) continue;
    if (record->messages_[index]) return std::move(record->messages_[index]);
    const Notice& notice = record->notice_;
    return restore(*record->type_, notice.content.items[index], notice.identity);
  }
  return nullptr;
}

void Record::fill_details(const Notice& notice) noexcept {
  auto& details = *new (reply_.details) vu_platform_details();
  details.time_us = notice.time_us;
  details.count = notice.count;
  details.status = notice.status;
  details.db = notice.db;
  details.tag = notice.tag;
  if (notice.names_object) {
    // The identity of a type without key fields is empty, and still one.
    details.key =
        static_cast<const unsigned char*>(static_cast<const void*>(notice.identity.data()));
    details.key_size = static_cast<std::uint32_t>(notice.identity.size());
  }
  copy_text(details.error, sizeof(details.error), notice.error.c_str());
}

void Record::set_error(std::int32_t status, const char* text) noexcept {
  reply_.data = nullptr;
  has_payload_ = false;
  count_ = 0;
  auto& details = details_of(reply_);
  details.status = status;
  copy_text(details.error, sizeof(details.error), text);
}

void Record::make_room(std::size_t count) {
  if (count <= 1) {
    messages_ = &only_message_;
    addresses_ = &only_address_;
    return;
  }
  more_messages_.resize(count);
  more_addresses_.resize(count);
  messages_ = more_messages_.data();
  addresses_ = more_addresses_.data();
}

void Record::fill_content(const Receiver& receiver, const Notice& notice) {
  const Content& content = notice.content;
  if (content.form == Content::Form::kNothing) return;

  const std::size_t count = content.items.size();
  if (count > std::numeric_limits<std::uint32_t>::max()) throw std::bad_alloc();
  make_room(count);
  for (std::size_t i = 0; i < count; ++i) {
    auto message = restore(*receiver.type, content.items[i], notice.identity);
    if (!message) throw std::runtime_error("what is stored is not a " + receiver.type->name);
    addresses_[i] = address_of(message.get());
    messages_[i] = std::move(message);
    ++count_;
  }
  if (content.form == Content::Form::kMessage) {
    reply_.data = messages_[0].get();
    return;
  }

  payload_.messages = addresses_;
  payload_.count = static_cast<std::uint32_t>(count);
  switch (content.form) {
    case Content::Form::kInteger:
      payload_.kind = VU_PLATFORM_PAYLOAD_INTEGER;
      payload_.integer = content.integer;
      break;
    case Content::Form::kScore:
      payload_.kind = VU_PLATFORM_PAYLOAD_SCORE;
      payload_.score = content.score;
      break;
    case Content::Form::kHash:
      payload_.kind = VU_PLATFORM_PAYLOAD_HASH;
      tags_.assign(content.tags.begin(), content.tags.end());
      payload_.tags = tags_.data();
      payload_.count = static_cast<std::uint32_t>(tags_.size());
      break;
    case Content::Form::kScored:
      payload_.kind = VU_PLATFORM_PAYLOAD_SCORED;
      payload_.scores = content.scores.data();
      break;
    default:
      payload_.kind = VU_PLATFORM_PAYLOAD_MESSAGES;
  }
  reply_.data = &payload_;
  has_payload_ = true;
}

}  // namespace vu::store
