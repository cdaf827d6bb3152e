// What a store has on its way to servers, and who waits for the outcome.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "router.h"

namespace vu::store {

// One command, or one to each of several partitions. Belongs to all who hold it, first to
// who made it; the store holds it for each command that has no outcome yet.
class Errand {
 public:
  explicit Errand(bool only_reads) : only_reads_(only_reads) {}
  Errand(const Errand&) = delete;
  Errand& operator=(const Errand&) = delete;

  void hold() noexcept { ++holders_; }
  void release() noexcept {
    if (--holders_ == 0) delete this;
  }

  // Told once for each command, on the loop's thread.
  virtual void finish(const Outcome& outcome) noexcept = 0;

  bool only_reads() const { return only_reads_; }
  // How many requests each of its commands stands for. Stays once it is issued.
  std::size_t weight() const { return weight_; }

 protected:
  virtual ~Errand() = default;

  std::size_t weight_ = 1;

 private:
  std::uint32_t holders_ = 1;
  const bool only_reads_;
};

// The commands of an errand, each with the partition that it goes to.
using Commands = std::vector<std::pair<unsigned, std::string>>;

// Takes a hold over, as a maker's own, and gives it up where it ends.
class ErrandHold {
 public:
  explicit ErrandHold(Errand& errand) noexcept : errand_(errand) {}
  ~ErrandHold() { errand_.release(); }
  ErrandHold(const ErrandHold&) = delete;
  ErrandHold& operator=(const ErrandHold&) = delete;

 private:
  Errand& errand_;
};

}  // namespace vu::store
