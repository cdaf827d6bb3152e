// Sorted sets, beside a B-tree of scores and members with a hash map from member to score.
#include <absl/container/btree_set.h>
#include <absl/container/flat_hash_map.h>
#include <benchmark/benchmark.h>

#include <map>
#include <utility>

#include "objects.h"

namespace vu::bench {
namespace {

// What one would use for a sorted set otherwise.
struct Tree {
  absl::btree_set<std::pair<double, std::string>> ordered;
  absl::flat_hash_map<std::string, double> scores;

  void add(double score, const std::string& member) {
    const auto [known, is_new] = scores.try_emplace(member, score);
    if (!is_new) {
      if (known->second == score) return;
      ordered.erase({known->second, member});
      known->second = score;
    }
    ordered.emplace(score, member);
  }
};

double score_of(std::size_t number) { return static_cast<double>(number); }

struct Contents {
  explicit Contents(std::size_t count) : engine("sorted sets" + std::to_string(count)) {
    for (std::size_t i = 0; i < count; ++i) {
      members.push_back(bytes_of(i));
      tree.add(score_of(i), members.back());
      add(score_of(i), members.back());
    }
  }

  void add(double score, const std::string& member) {
    store::Request request = engine.request(store::Command::kZadd);
    request.members.add(member);
    request.scores.push_back(score);
    engine.submit(request);
  }
  const store::SortedSetBody& set() {
    store::Shelf& shelf = engine.shelf();
    return shelf.object(engine.store().find(shelf, {})).body_as<store::SortedSetBody>();
  }

  std::vector<std::string> members;
  Engine engine;
  Tree tree;
};

Contents& contents(std::size_t count) {
  static auto& all = *new std::map<std::size_t, Contents>();
  return all.try_emplace(count, count).first->second;
}

std::size_t count_of(const benchmark::State& state) {
  return static_cast<std::size_t>(state.range(0));
}

// Members get new scores.
template <typename Add>
void measure_add(benchmark::State& state, Add add) {
  Contents& all = contents(count_of(state));
  Numbers numbers(count_of(state));
  Numbers scores(count_of(state) + 1);  // out of step, so that each one is new
  for (auto _ : state) add(all, score_of(scores.next()), all.members[numbers.next()]);
}

void engine_add(benchmark::State& state) {
  measure_add(state, [](Contents& all, double score, const std::string& member) {
    all.add(score, member);
  });
}

void tree_add(benchmark::State& state) {
  measure_add(state, [](Contents& all, double score, const std::string& member) {
    all.tree.add(score, member);
  });
}

// Copies members from a score on.
void engine_read(benchmark::State& state) {
  Contents& all = contents(count_of(state));
  Numbers numbers(count_of(state) - kReads);
  for (auto _ : state) {
    const store::SortedSetBody& set = all.set();
    const double least = score_of(numbers.next());
    std::vector<std::pair<double, std::string>> read;
    read.reserve(kReads);
    auto cursor = set.ranked.lower_bound(
        [&](store::Cell member) { return set.score_of(member) < least ? -1 : 1; });
    for (int i = 0; i < kReads && !cursor.at_end(); ++i, cursor.advance()) {
      read.emplace_back(set.score_of(*cursor), set.bytes_of(*cursor));
    }
    benchmark::DoNotOptimize(read.data());
  }
}

void tree_read(benchmark::State& state) {
  Contents& all = contents(count_of(state));
  Numbers numbers(count_of(state) - kReads);
  for (auto _ : state) {
    const double least = score_of(numbers.next());
    std::vector<std::pair<double, std::string>> read;
    read.reserve(kReads);
    auto cursor = all.tree.ordered.lower_bound({least, std::string()});
    for (int i = 0; i < kReads && cursor != all.tree.ordered.end(); ++i, ++cursor) {
      read.push_back(*cursor);
    }
    benchmark::DoNotOptimize(read.data());
  }
}

// How many members have smaller scores: a B-tree would have to count them.
void engine_rank(benchmark::State& state) {
  Contents& all = contents(count_of(state));
  Numbers numbers(count_of(state));
  for (auto _ : state) {
    const store::SortedSetBody& set = all.set();
    const double score = score_of(numbers.next());
    benchmark::DoNotOptimize(
        set.ranked.rank([&](store::Cell member) { return set.score_of(member) < score ? -1 : 1; }));
  }
}

void sizes(benchmark::internal::Benchmark* one) { one->Arg(1000)->Arg(100000)->Arg(1000000); }

BENCHMARK(engine_add)->Name("zadd, a new score/engine")->Apply(sizes);
BENCHMARK(tree_add)->Name("zadd, a new score/btree_set")->Apply(sizes);
BENCHMARK(engine_read)->Name("read 10 from a score on/engine")->Apply(sizes);
BENCHMARK(tree_read)->Name("read 10 from a score on/btree_set")->Apply(sizes);
BENCHMARK(engine_rank)->Name("rank of a score/engine")->Apply(sizes);

}  // namespace
}  // namespace vu::bench
