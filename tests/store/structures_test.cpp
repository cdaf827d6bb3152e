// The structures of the embedded engine alone, against naive models.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "embedded/hash_index.h"
#include "embedded/ordered_index.h"
#include "embedded/slab.h"
#include "random.h"
#include "wire.h"

namespace vu::store::test {
namespace {

auto to(std::uint32_t sought) {
  return [sought](std::uint32_t value) { return value < sought ? -1 : value > sought ? 1 : 0; };
}

std::vector<std::uint32_t> walk(const OrderedIndex<std::uint32_t>& index, std::size_t from) {
  std::vector<std::uint32_t> values;
  for (auto cursor = index.at(from); !cursor.at_end(); cursor.advance()) values.push_back(*cursor);
  return values;
}

void expect_same(const OrderedIndex<std::uint32_t>& index, const std::set<std::uint32_t>& model) {
  ASSERT_TRUE(index.consistent());
  ASSERT_EQ(index.size(), model.size());
  const std::vector<std::uint32_t> expected(model.begin(), model.end());
  ASSERT_EQ(walk(index, 0), expected);
}

TEST(OrderedIndex, AnswersAsASortedVectorThroughRandomChanges) {
  Random random(1);
  // Small ranges make hits and erasures frequent; the large one makes a tall tree.
  for (const std::uint32_t range : {50u, 3000u, 200000u}) {
    OrderedIndex<std::uint32_t> index;
    std::set<std::uint32_t> model;
    for (int round = 0; round < 40; ++round) {
      // Phases that grow and phases that shrink, down to nothing.
      const bool grow = round % 4 < 2;
      for (int i = 0; i < 1500; ++i) {
        const std::uint32_t value = random() % range;
        if (random() % 10 < (grow ? 9u : 1u)) {
          if (model.insert(value).second) index.insert(to(value), value);
        } else {
          ASSERT_EQ(index.erase(to(value)), model.erase(value) == 1);
        }
      }
      if (round % 8 == 7) {
        while (!model.empty()) {
          ASSERT_TRUE(index.erase(to(*model.begin())));
          model.erase(model.begin());
        }
      }
      expect_same(index, model);
      const std::vector<std::uint32_t> sorted(model.begin(), model.end());
      for (int i = 0; i < 50; ++i) {
        const std::uint32_t sought = random() % (range + 2);
        const auto bound = std::lower_bound(sorted.begin(), sorted.end(), sought);
        const auto rank = static_cast<std::size_t>(bound - sorted.begin());
        ASSERT_EQ(index.rank(to(sought)), rank);
        const auto cursor = index.lower_bound(to(sought));
        ASSERT_EQ(cursor.at_end(), bound == sorted.end());
        if (!cursor.at_end()) {
          ASSERT_EQ(*cursor, *bound);
          ASSERT_EQ(*index.at(rank), *bound);
        }
        ASSERT_TRUE(index.at(sorted.size()).at_end());
      }
    }
  }
}

TEST(OrderedIndex, ErasesFromEitherEnd) {
  for (const bool front : {true, false}) {
    OrderedIndex<std::uint32_t> index;
    std::set<std::uint32_t> model;
    for (std::uint32_t i = 0; i < 20000; ++i) {
      index.insert(to(i), i);
      model.insert(i);
    }
    expect_same(index, model);
    while (!model.empty()) {
      const std::uint32_t value = front ? *model.begin() : *model.rbegin();
      ASSERT_TRUE(index.erase(to(value)));
      model.erase(value);
      if (model.size() % 1000 == 0) expect_same(index, model);
    }
  }
}

TEST(OrderedIndex, ReplacesInPlace) {
  // Values in the order of their halves.
  const auto half = [](std::uint32_t sought) {
    return [sought](std::uint32_t value) {
      return value / 2 < sought ? -1 : value / 2 > sought ? 1 : 0;
    };
  };
  OrderedIndex<std::uint32_t> index;
  for (std::uint32_t i = 0; i < 5000; ++i) index.insert(half(i), 2 * i);
  for (std::uint32_t i = 0; i < 5000; ++i) ASSERT_TRUE(index.replace(half(i), 2 * i + 1));
  EXPECT_FALSE(index.replace(half(5000), 1));
  EXPECT_TRUE(index.consistent());
  const auto values = walk(index, 0);
  ASSERT_EQ(values.size(), 5000u);
  for (std::uint32_t i = 0; i < 5000; ++i) ASSERT_EQ(values[i], 2 * i + 1);
}

TEST(OrderedIndex, ValuesThatComeInOrderFillTheLeaves) {
  OrderedIndex<std::uint32_t> index;
  for (std::uint32_t i = 0; i < 1000000; ++i) index.insert(to(i), i);
  EXPECT_LT(index.bytes(), 6000000u);
  EXPECT_TRUE(index.consistent());
  EXPECT_EQ(index.rank(to(765432)), 765432u);
  EXPECT_EQ(*index.at(123456), 123456u);
}

TEST(HashIndex, FindsWhatIsInsideThroughRandomChanges) {
  Random random(2);
  for (const std::size_t spread : {std::size_t{1}, std::size_t{7}, ~std::size_t{0}}) {
    HashIndex<std::uint32_t> index;
    std::set<std::uint32_t> model;
    const auto hash_of = [&](std::uint32_t value) {
      return std::size_t{value} * 0x9E3779B9u % spread;  // with many equal hashes, too
    };
    const auto find = [&](std::uint32_t value) {
      return index.find(hash_of(value), [&](std::uint32_t other) { return other == value; });
    };
    for (int i = 0; i < 6000; ++i) {
      const std::uint32_t value = random() % 300;
      std::uint32_t* const found = find(value);
      ASSERT_EQ(found != nullptr, model.count(value) == 1);
      if (found == nullptr) {
        index.prepare_insert(hash_of);
        index.insert(hash_of(value), value);
        model.insert(value);
      } else {
        ASSERT_EQ(*found, value);
        index.erase(found);
        model.erase(value);
      }
      if (i % 2000 == 1999) {
        for (std::uint32_t gone = 0; gone < 300; ++gone) {
          if (model.erase(gone) == 1) index.erase(find(gone));
        }
        ASSERT_EQ(index.bytes(), 0u);
      }
    }
    std::set<std::uint32_t> visited;
    index.for_each([&](std::uint32_t value) { visited.insert(value); });
    EXPECT_EQ(visited, model);
  }
}

TEST(HashIndex, ReplacingForEverDoesNotGrow) {
  HashIndex<std::uint32_t> index;
  const auto hash_of = [](std::uint32_t value) { return std::size_t{value} * 0x9E3779B9u; };
  for (std::uint32_t i = 0; i < 100000; ++i) {
    index.prepare_insert(hash_of);
    index.insert(hash_of(i), i);
    if (i >= 100) {
      index.erase(index.find(hash_of(i - 100), [&](std::uint32_t v) { return v == i - 100; }));
    }
  }
  EXPECT_EQ(index.size(), 100u);
  EXPECT_LE(index.bytes(), 512u * 5);
}

TEST(Slab, KeepsBlocksApartAndGivesPagesBack) {
  Random random(3);
  Slab slab;
  std::map<Cell, std::string> model;
  for (int i = 0; i < 60000; ++i) {
    if (model.size() < 2000 && random() % 3 != 0) {
      const std::size_t size = random() % 20 == 0 ? random() % 5000 : random() % 200;
      const Cell cell = slab.allocate(size);
      ASSERT_NE(cell, 0u);
      ASSERT_EQ(reinterpret_cast<std::uintptr_t>(slab.at(cell)) % 8, 0u);
      std::string content(size, static_cast<char>(random()));
      std::memcpy(slab.at(cell), content.data(), size);
      ASSERT_TRUE(model.emplace(cell, content).second);
    } else if (!model.empty()) {
      auto victim = model.lower_bound(static_cast<Cell>(random()));
      if (victim == model.end()) victim = model.begin();
      ASSERT_EQ(std::memcmp(slab.at(victim->first), victim->second.data(), victim->second.size()),
                0);
      slab.release(victim->first);
      model.erase(victim);
    }
  }
  for (const auto& [cell, content] : model) {
    ASSERT_EQ(std::memcmp(slab.at(cell), content.data(), content.size()), 0);
    slab.release(cell);
  }
  EXPECT_EQ(slab.bytes(), 0u);
}

TEST(Slab, KnowsWhichSizesShareACell) {
  EXPECT_TRUE(Slab::same_cell(1, 8));
  EXPECT_FALSE(Slab::same_cell(8, 9));
  EXPECT_TRUE(Slab::same_cell(1017, 1024));
  EXPECT_FALSE(Slab::same_cell(1024, 1025));
  EXPECT_FALSE(Slab::same_cell(2000, 2000));
}

TEST(Wire, ReadsRecordsAndStopsAtBadBytes) {
  // 1: varint 150, 2: "hi", 3: fixed32, 4: fixed64, 5: a group with 6: 1 inside
  const std::string good("\x08\x96\x01\x12\x02hi\x1d\1\2\3\4\x21\1\2\3\4\5\6\7\x08\x2b\x30\x01\x2c",
                         25);
  std::vector<std::uint32_t> numbers;
  std::string joined;
  WireReader reader(good);
  for (WireRecord record; reader.next(record);) {
    numbers.push_back(record.number);
    joined.append(record.bytes);
    if (record.number == 2) {
      EXPECT_EQ(record.content, "hi");
    }
  }
  EXPECT_EQ(numbers, (std::vector<std::uint32_t>{1, 2, 3, 4, 5}));
  EXPECT_EQ(joined, good);
  EXPECT_EQ(records_of(good, 2), "\x12\x02hi");
  EXPECT_EQ(without(good, 4).size(), good.size() - 9);
  EXPECT_TRUE(carries(good, 5));
  EXPECT_FALSE(carries(good, 6));

  for (std::size_t size = 0; size < good.size(); ++size) {
    WireReader cut(std::string_view(good).substr(0, size));
    std::size_t read = 0;
    for (WireRecord record; cut.next(record);) read += record.bytes.size();
    EXPECT_LE(read, size);
  }
  WireRecord record;
  EXPECT_FALSE(WireReader(std::string("\x00\x01", 2)).next(record));  // field 0
  EXPECT_FALSE(WireReader("\x2c").next(record));                      // an end without a group
  EXPECT_FALSE(WireReader(std::string(300, '\x2b')).next(record));    // groups without an end
  EXPECT_FALSE(WireReader(std::string(11, '\xff')).next(record));
}

}  // namespace
}  // namespace vu::store::test
