// Requests of one sort that follow each other, as one command: a command costs the server, and the
// way to it and back, more than one more object in it.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

#include "errand.h"
#include "protocol.h"

namespace vu::store {

// Whether requests like this are sent together. The others are for encode().
bool is_for_batch(const Request& request, const Place& place);

// What one request adds to the command. Throws std::bad_alloc.
class BatchPart {
 public:
  BatchPart(const Request& request, const Place& place);
  BatchPart(const BatchPart&) = delete;
  BatchPart& operator=(const BatchPart&) = delete;
  ~BatchPart();

 private:
  friend class Batch;

  void add_names(std::string_view key);
  void add_event(std::string_view key, const Request& request, const Place& place);

  std::string keys_;   // in the protocol's bytes
  std::string words_;  // likewise
  std::size_t key_count_ = 1;
  std::size_t word_count_ = 0;
};

class Batch final : public Errand {
 public:
  // For requests with this command; the partition is that of the first.
  Batch(Command command, unsigned partition);
  Batch(const Batch&) = delete;
  Batch& operator=(const Batch&) = delete;

  bool takes(Command command) const;
  unsigned partition() const { return partition_; }

  // Holds the errand until its outcome is told. Throws std::bad_alloc with nothing changed.
  // Requires: the batch takes it.
  void add(Errand& errand, const BatchPart& part);
  // The whole, which is then sent. Throws std::bad_alloc.
  std::string take_command(const Place& place);

  void finish(const Outcome& outcome) noexcept override;

 private:
  static constexpr std::size_t kMost = 16;
  static constexpr std::size_t kMostBytes = std::size_t{64} << 10;
  static constexpr std::size_t kFront = 32;  // what stands in front of the keys of a get

  ~Batch() override;

  const Command command_;
  const unsigned partition_;
  std::array<Errand*, kMost> errands_ = {};
  std::string keys_;
  std::string words_;
  std::size_t key_count_ = 0;
  std::size_t word_count_ = 0;
};

}  // namespace vu::store
