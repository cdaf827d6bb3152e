#include "lane.h"

#include <hiredis/hiredis.h>

#include <algorithm>
#include <cstdio>

#include "protocol.h"

namespace vu::store {

namespace {

// What one call hands to the kernel at most, as it limits it itself.
constexpr std::size_t kMostParts = 1024;

}  // namespace

Lane::Lane(const Address& address, const Endpoint& endpoint, uv_loop_t* loop, Owner& owner)
    : owner_(owner),
      endpoint_(endpoint),
      timeout_us_(address.command_timeout_us),
      link_(address, endpoint, Link::Use::kCommands, loop, *this),
      library_(std::make_unique<Entry>()),
      slots_(std::make_unique<Entry>()) {
  append_command(library_->command, {"FUNCTION", "LOAD", function_library()});
  library_->kind = Entry::Kind::kLibrary;
  append_command(slots_->command, {"CLUSTER", "SLOTS"});
  slots_->kind = Entry::Kind::kSlots;
}

void Lane::add(std::unique_ptr<Entry> entry) noexcept {
  unsent_bytes_ += entry->command.size();
  unsent_.push_back(std::move(entry));
}

void Lane::add_in_front(EntryList& entries) noexcept {
  EntryList behind;
  behind.append(unsent_);
  while (!entries.empty()) add(entries.pop_front());
  unsent_.append(behind);
}

void Lane::add_question(std::unique_ptr<Entry>& question) noexcept {
  if (!question) return;
  question->deadline_us = steady_us() + timeout_us_;
  add(std::move(question));
}

void Lane::add_library() noexcept { add_question(library_); }

bool Lane::ask_slots() noexcept {
  const bool is_new = slots_ != nullptr;
  add_question(slots_);
  return is_new;
}

void Lane::reclaim(std::unique_ptr<Entry> question) noexcept {
  (question->kind == Entry::Kind::kLibrary ? library_ : slots_) = std::move(question);
}

std::size_t Lane::reclaim_from(EntryList& list) noexcept {
  std::size_t bytes = 0;
  for (std::size_t left = list.size(); left != 0; --left) {
    std::unique_ptr<Entry> entry = list.pop_front();
    if (entry->kind == Entry::Kind::kCommand) {
      list.push_back(std::move(entry));
    } else {
      bytes += entry->command.size();
      reclaim(std::move(entry));
    }
  }
  return bytes;
}

// ---- Sending -----------------------------------------------------------------------

void Lane::flush(std::int64_t now_us) noexcept {
  if (unsent_.empty()) return;
  if (!link_.is_up()) {
    link_.open();
  } else if (!is_blocked_) {
    write(now_us);
  }
}

void Lane::write(std::int64_t now_us) noexcept {
  std::array<iovec, kMostParts> parts;  // NOLINT: filled as far as it is used
  while (!unsent_.empty()) {
    std::size_t count = 0;
    std::size_t size = 0;
    for (Entry* entry = &unsent_.front(); entry != nullptr && count < kMostParts;
         entry = entry->next.get()) {
      const std::size_t written = count == 0 ? front_written_ : 0;
      parts[count] = {entry->command.data() + written, entry->command.size() - written};
      size += parts[count++].iov_len;
    }
    const std::size_t taken = link_.write(parts.data(), count);
    if (taken != 0 || written_us_ == 0) written_us_ = now_us;
    front_written_ += taken;
    while (!unsent_.empty() && front_written_ >= unsent_.front().command.size()) {
      std::unique_ptr<Entry> entry = unsent_.pop_front();
      front_written_ -= entry->command.size();
      unsent_bytes_ -= entry->command.size();
      if (!entry->is_repeat) entry->deadline_us = now_us + timeout_us_;
      sent_.push_back(std::move(entry));
    }
    if (taken < size) {
      is_blocked_ = true;
      return;
    }
  }
}

void Lane::on_up() noexcept {
  reason_[0] = '\0';
  is_blocked_ = false;
  written_us_ = steady_us();
  write(written_us_);
}

void Lane::on_writable() noexcept {
  is_blocked_ = false;
  write(steady_us());
  if (unsent_.empty()) owner_.on_drained(*this);
}

// ---- Replies -----------------------------------------------------------------------

void Lane::on_reply(const redisReply& reply) noexcept {
  if (sent_.empty()) {
    give_up("it said what nobody has asked for");
    return;
  }
  if (sent_.front().is_asking && !is_asking_answered_) {
    is_asking_answered_ = true;
    return;
  }
  is_asking_answered_ = false;
  std::unique_ptr<Entry> entry = sent_.pop_front();
  if (entry->kind == Entry::Kind::kLibrary) {
    const bool is_error = reply.type == REDIS_REPLY_ERROR;
    std::snprintf(library_error_.data(), library_error_.size(), "%s", is_error ? reply.str : "");
    reclaim(std::move(entry));
    return;
  }
  if (entry->kind == Entry::Kind::kSlots) {
    reclaim(std::move(entry));
    owner_.on_slots(&reply);
    return;
  }
  owner_.on_answer(*this, std::move(entry), reply);
}

// ---- Losing ------------------------------------------------------------------------

void Lane::on_down(const char* reason, bool is_refused) noexcept { lose(reason, is_refused); }

void Lane::give_up(const char* reason) noexcept {
  std::array<char, 320> text = {};
  std::snprintf(text.data(), text.size(), "lost %s: %s", link_.name().c_str(), reason);
  link_.drop();
  lose(text.data(), false);
}

void Lane::lose(const char* reason, bool is_refused) noexcept {
  std::snprintf(reason_.data(), reason_.size(), "%s", reason);
  is_blocked_ = false;
  front_written_ = 0;  // what has left in part was not carried out
  is_asking_answered_ = false;
  const bool was_asked = !slots_;
  if (!library_ || !slots_) {
    reclaim_from(sent_);
    unsent_bytes_ -= reclaim_from(unsent_);
  }
  owner_.on_lost(*this, std::move(sent_), reason_.data(), is_refused);
  if (was_asked) owner_.on_slots(nullptr);
}

void Lane::rest() noexcept {
  if (sent_.empty() && unsent_.empty()) link_.close();
}

void Lane::close(EntryList& sent, EntryList& unsent) noexcept {
  link_.close();
  reclaim_from(sent_);
  reclaim_from(unsent_);
  sent.append(sent_);
  unsent.append(unsent_);
  unsent_bytes_ = 0;
  front_written_ = 0;
}

// ---- Time --------------------------------------------------------------------------

std::int64_t Lane::due_us() const {
  if (!sent_.empty()) return sent_.front().deadline_us;
  if (unsent_.empty()) return INT64_MAX;
  return link_.is_up() ? written_us_ + timeout_us_ : unsent_.front().deadline_us;
}

void Lane::take_expired(std::int64_t now_us, EntryList& to) noexcept {
  bool was_asked = false;
  while (!unsent_.empty() && !link_.is_up() && unsent_.front().deadline_us <= now_us) {
    std::unique_ptr<Entry> entry = unsent_.pop_front();
    unsent_bytes_ -= entry->command.size();
    if (entry->kind == Entry::Kind::kCommand) {
      to.push_back(std::move(entry));
    } else {
      was_asked |= entry->kind == Entry::Kind::kSlots;
      reclaim(std::move(entry));
    }
  }
  if (was_asked) owner_.on_slots(nullptr);
}

}  // namespace vu::store
