// What a million objects take.
#include <absl/container/flat_hash_map.h>
#include <benchmark/benchmark.h>
#include <malloc.h>

#include "objects.h"

namespace vu::bench {
namespace {

constexpr std::size_t kObjects = 1000000;

std::size_t allocated() {
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

template <typename Fill>
void measure(benchmark::State& state, Fill fill) {
  names(kObjects);  // not a part of it
  for (auto _ : state) {
    const std::size_t before = allocated();
    const auto kept = fill();
    state.counters["bytes"] = static_cast<double>(allocated() - before) / kObjects;
  }
}

void engine_bytes(benchmark::State& state) {
  measure(state, [] {
    auto engine = std::make_unique<Engine>("memory");
    engine->fill(kObjects);
    return engine;
  });
}

void map_bytes(benchmark::State& state) {
  measure(state, [] {
    absl::flat_hash_map<std::string, std::string> map;
    for (std::size_t i = 0; i < kObjects; ++i) map[identity_of(names(kObjects)[i])] = bytes_of(i);
    return map;
  });
}

BENCHMARK(engine_bytes)->Name("memory of an object/engine/1000000")->Iterations(1)->Repetitions(1);
BENCHMARK(map_bytes)
    ->Name("memory of an object/flat_hash_map/1000000")
    ->Iterations(1)
    ->Repetitions(1);

}  // namespace
}  // namespace vu::bench
