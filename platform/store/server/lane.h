// The commands to one server: those to be sent and those that wait for their replies.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "../recycled.h"
#include "link.h"

namespace vu::store {

// A command on its way. Linked by its owner, so that moving it cannot fail.
struct Entry : Recycled<Entry> {
  // The others are a lane's own questions: about the library, and who has which slots.
  enum class Kind : std::uint8_t { kCommand, kLibrary, kSlots };

  std::unique_ptr<Entry> next;
  std::string command;
  void* ticket = nullptr;
  std::int64_t deadline_us = 0;
  unsigned partition = 0;
  std::uint8_t refusals = 0;
  bool only_reads = false;
  bool is_repeat = false;  // its deadline stays
  bool is_asking = false;  // there is ASKING in front, which has a reply of its own
  Kind kind = Kind::kCommand;
};

class EntryList {
 public:
  EntryList() = default;
  EntryList(EntryList&& other) noexcept
      : first_(std::move(other.first_)),
        last_(std::exchange(other.last_, nullptr)),
        size_(std::exchange(other.size_, 0)) {}
  EntryList(const EntryList&) = delete;
  EntryList& operator=(const EntryList&) = delete;
  EntryList& operator=(EntryList&&) = delete;
  ~EntryList() { clear(); }

  bool empty() const { return !first_; }
  std::size_t size() const { return size_; }
  const Entry& front() const { return *first_; }
  Entry& front() { return *first_; }

  void push_back(std::unique_ptr<Entry> entry) noexcept {
    std::unique_ptr<Entry>& end = last_ == nullptr ? first_ : last_->next;
    end = std::move(entry);
    last_ = end.get();
    ++size_;
  }
  void push_front(std::unique_ptr<Entry> entry) noexcept {
    if (last_ == nullptr) last_ = entry.get();
    entry->next = std::move(first_);
    first_ = std::move(entry);
    ++size_;
  }
  std::unique_ptr<Entry> pop_front() noexcept {
    std::unique_ptr<Entry> entry = std::move(first_);
    first_ = std::move(entry->next);
    if (!first_) last_ = nullptr;
    --size_;
    return entry;
  }
  // Puts all of `others` behind.
  void append(EntryList& others) noexcept {
    while (!others.empty()) push_back(others.pop_front());
  }
  // Puts all of `others` in front.
  void prepend(EntryList& others) noexcept {
    if (others.empty()) return;
    others.last_->next = std::move(first_);
    if (last_ == nullptr) last_ = others.last_;
    first_ = std::move(others.first_);
    size_ += others.size_;
    others.last_ = nullptr;
    others.size_ = 0;
  }
  void clear() noexcept {
    while (!empty()) pop_front();
  }

 private:
  std::unique_ptr<Entry> first_;
  Entry* last_ = nullptr;
  std::size_t size_ = 0;
};

class Lane final : Link::Owner {
 public:
  class Owner {
   public:
    virtual void on_answer(Lane& lane, std::unique_ptr<Entry> entry,
                           const redisReply& reply) noexcept = 0;
    // The connection has ended: `sent` had left completely and have no reply; the others
    // are still the lane's.
    virtual void on_lost(Lane& lane, EntryList sent, const char* reason,
                         bool is_refused) noexcept = 0;
    // The reply to ask_slots(), which is over; null: the connection was lost.
    virtual void on_slots(const redisReply* reply) noexcept = 0;
    // What could not leave has left.
    virtual void on_drained(Lane& lane) noexcept = 0;

   protected:
    ~Owner() = default;
  };

  // Throws std::bad_alloc.
  Lane(const Address& address, const Endpoint& endpoint, uv_loop_t* loop, Owner& owner);

  const Endpoint& endpoint() const { return endpoint_; }
  const char* name() const { return link_.name().c_str(); }
  // Why there is no connection; empty where nothing has gone wrong yet.
  const char* reason() const { return reason_.data(); }
  // What the server has last said against the library; empty: nothing.
  const char* library_error() const { return library_error_.data(); }
  bool is_up() const { return link_.is_up(); }
  bool has_more() const { return link_.has_more(); }
  std::uint64_t reconnects() const { return link_.reconnects(); }
  std::size_t unsent_bytes() const { return unsent_bytes_; }

  void add(std::unique_ptr<Entry> entry) noexcept;
  // In front of all that is there. Requires: not up.
  void add_in_front(EntryList& entries) noexcept;
  // Sees to it that the library of functions is there for what is added afterwards.
  void add_library() noexcept;
  // Asks which server has which slots. False where it has been asked and has not said.
  bool ask_slots() noexcept;

  // Moves what has not begun to leave and is wanted to `to`. Returns how many.
  template <typename Predicate>
  std::size_t take_unsent(Predicate is_wanted, EntryList& to) noexcept {
    std::size_t taken = 0;
    bool has_begun = front_written_ != 0;
    for (std::size_t left = unsent_.size(); left != 0; --left) {
      std::unique_ptr<Entry> entry = unsent_.pop_front();
      const bool stays = std::exchange(has_begun, false) || entry->kind != Entry::Kind::kCommand ||
                         !is_wanted(*entry);
      if (!stays) {
        unsent_bytes_ -= entry->command.size();
        ++taken;
      }
      (stays ? unsent_ : to).push_back(std::move(entry));
    }
    return taken;
  }

  // Writes what it can without waiting; connects where it has to.
  void flush(std::int64_t now_us) noexcept;
  // Gives the connection up as lost; tells on_lost. Requires: up.
  void give_up(const char* reason) noexcept;
  // Where nothing is left to be sent or answered, ends the connection until it is needed.
  void rest() noexcept;
  // For good. What was sent and has no reply, and the rest.
  void close(EntryList& sent, EntryList& unsent) noexcept;

  // When somebody will have waited too long, in steady_us(); INT64_MAX: nobody waits.
  std::int64_t due_us() const;
  // Where there is no connection, moves what has waited too long for one to `to`.
  void take_expired(std::int64_t now_us, EntryList& to) noexcept;

 private:
  void on_up() noexcept override;
  void on_reply(const redisReply& reply) noexcept override;
  void on_writable() noexcept override;
  void on_down(const char* reason, bool is_refused) noexcept override;
  void write(std::int64_t now_us) noexcept;
  void lose(const char* reason, bool is_refused) noexcept;
  void add_question(std::unique_ptr<Entry>& question) noexcept;
  void reclaim(std::unique_ptr<Entry> question) noexcept;
  // Takes its own questions out. Returns how many bytes they are.
  std::size_t reclaim_from(EntryList& list) noexcept;

  Owner& owner_;
  const Endpoint endpoint_;
  const std::int64_t timeout_us_;
  Link link_;
  EntryList sent_;
  EntryList unsent_;
  std::size_t front_written_ = 0;  // bytes of the first of unsent_
  std::size_t unsent_bytes_ = 0;
  std::int64_t written_us_ = 0;      // when it last wrote something
  std::unique_ptr<Entry> library_;   // null while it is on its way
  std::unique_ptr<Entry> slots_;     // likewise
  bool is_asking_answered_ = false;  // the first of sent_ has only the second reply to come
  bool is_blocked_ = false;
  std::array<char, 320> reason_ = {};
  std::array<char, 160> library_error_ = {};
};

}  // namespace vu::store
