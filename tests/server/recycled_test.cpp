// What is kept of memory that comes and goes by the thousand.
#include "recycled.h"

#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "failing_allocations.h"

namespace vu::testing {
namespace {

struct Small : store::Recycled<Small> {
  char bytes[40] = {};
};
// Larger than what its base keeps.
struct Larger : Small {
  // cppcheck-suppress unusedStructMember; it is there for its size
  char more[40] = {};
};

// How many can be made when memory has ended; they are gone again afterwards.
template <typename Make>
std::size_t count_without_memory(Make make) {
  std::vector<decltype(make())> made;
  made.reserve(2 * store::kMostKept + 10);
  fail_allocations(0, Failing::kFromThenOn);
  try {
    while (made.size() < made.capacity()) made.push_back(make());
  } catch (const std::bad_alloc&) {
  }
  EXPECT_TRUE(end_failing_allocations());
  return made.size();
}

TEST(RecycledTest, KeepsMemoryUpToItsLimit) {
  const auto make = [] { return std::make_unique<Small>(); };
  {
    std::vector<std::unique_ptr<Small>> many(store::kMostKept + 5);
    for (auto& one : many) one = make();
  }
  EXPECT_EQ(count_without_memory(make), store::kMostKept);
  EXPECT_EQ(count_without_memory(make), store::kMostKept) << "when these were given back";
}

TEST(RecycledTest, KeepsNoMemoryOfAnotherSize) {
  const auto make = [] { return std::make_unique<Larger>(); };
  std::make_unique<Larger>().reset();
  EXPECT_EQ(count_without_memory(make), 0u);
}

// Takes what other tests have left.
void empty(std::size_t room) {
  std::vector<std::string> left;
  for (std::size_t i = 0; i < store::kMostKept; ++i) left.push_back(store::take_text(room));
}

// How many texts of this size are kept of many that are given.
std::size_t count_kept(std::size_t size) {
  empty(size);
  const std::string usual(size, 'x');
  store::keep_text({});
  for (std::size_t i = 0; i < store::kMostKept + 5; ++i) store::keep_text(std::string(usual));
  return count_without_memory([&] {
    std::string text = store::take_text(size);
    EXPECT_EQ(text, "");
    text.append(usual);
    return text;
  });
}

TEST(RecycledTest, KeepsTextsUpToALimitAndNoLargeOnes) {
  EXPECT_EQ(count_kept(256), store::kMostKept);
  EXPECT_EQ(count_kept(10000), 0u);
}

TEST(RecycledTest, KeepsFewerTextsWhereTheyAreLarger) {
  EXPECT_EQ(count_kept(4096), store::kMostKept / 16);
  EXPECT_EQ(count_kept(512), store::kMostKept / 2) << "when those were taken";
}

TEST(RecycledTest, ShortTextsAreNotMadeOfLongOnes) {
  empty(100);
  empty(1000);
  store::keep_text(std::string(1000, 'x'));
  EXPECT_LT(store::take_text(100).capacity(), 1000u);
  EXPECT_GE(store::take_text(1000).capacity(), 1000u);
}

}  // namespace
}  // namespace vu::testing
