// What the tests of the functions have in common: requests about one object, and a clock.
#pragma once

#include <gtest/gtest.h>
#include <hiredis/hiredis.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "store_bench.h"

namespace vu::testing {

using Lines = std::vector<std::string>;

inline const std::string kA = "{device: \"a\"";

inline Request port(Command command, const std::string& text = "") {
  return request(command, "Port", "device: 'a' " + text);
}

class Functions : public ::testing::Test {
 protected:
  // A clock that stands still until it is moved.
  void stop_clock() { bench_.place.now_us = 1'700'000'000'000'000; }
  void pass(std::int64_t microseconds) { bench_.place.now_us += microseconds; }

  std::string run(const Request& made) { return bench_.run(made); }
  std::string run(Command command, const std::string& text = "") {
    return bench_.run(port(command, text));
  }
  std::string expire(std::int64_t lifetime, std::uint32_t level = 2) {
    Request made = port(Command::kPexpire);
    made.lifetime_us = lifetime;
    made.level = level;
    return run(made);
  }
  std::string expire_fields(std::int64_t lifetime, std::vector<std::uint32_t> tags) {
    Request made = port(Command::kPexpireFields);
    made.lifetime_us = lifetime;
    made.tags = std::move(tags);
    return run(made);
  }
  std::string fields(Command command, const std::string& text,
                     const std::vector<std::uint32_t>& tags) {
    Request made = port(command, text);
    made.named = true;
    std::vector<store::Field> named;
    for (const std::uint32_t tag : tags) {
      named.push_back({tag, ""});
      for (const store::Field& field : made.fields) {
        if (field.number == tag) named.back().records = field.records;
      }
    }
    made.fields = named;
    return run(made);
  }
  void watch(std::uint32_t tag = 0, std::uint32_t level = 2) {
    bench_.watch("Port", "device: 'a'", level, tag);
  }
  Lines told() { return bench_.told(); }
  std::string call(const std::vector<std::string>& words) { return bench_.server.call(words); }
  // What is left when the objects are gone.
  std::string keys() { return call({"KEYS", "*"}); }
  std::int64_t sweep() { return bench_.send(store::encode_sweep(bench_.place, -1, 100))->integer; }

  StoreBench bench_;
};

}  // namespace vu::testing
