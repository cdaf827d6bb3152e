// Publications that follow each other, as one command: to call a function costs the server more
// than to tell an event.
#pragma once

#include <array>
#include <cstddef>
#include <string>

#include "errand.h"
#include "protocol.h"

namespace vu::store {

// What one of them gives to the function.
struct Publication {
  Publication(const Request& request, const Place& place);
  Publication(const Publication&) = delete;
  Publication& operator=(const Publication&) = delete;
  ~Publication();

  std::string key;    // of the object
  std::string words;  // in the protocol's bytes: the event behind its time, the channels
  std::size_t count = 0;
};

class Publications final : public Errand {
 public:
  explicit Publications(unsigned partition) : Errand(false), partition_(partition) { weight_ = 0; }

  unsigned partition() const { return partition_; }
  bool is_full() const { return weight() == kMost || words_.size() >= kMostBytes; }

  // Holds the errand until its outcome is told. Throws std::bad_alloc with nothing changed.
  // Requires: not full.
  void add(Errand& errand, const Publication& publication);
  std::string command(const Place& place) const;

  void finish(const Outcome& outcome) noexcept override;

 private:
  static constexpr std::size_t kMost = 16;
  static constexpr std::size_t kMostBytes = std::size_t{64} << 10;

  ~Publications() override;

  const unsigned partition_;
  std::array<Errand*, kMost> errands_ = {};
  std::string keys_;
  std::string words_;
  std::size_t word_count_ = 0;
};

}  // namespace vu::store
