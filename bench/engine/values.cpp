// Single values, beside a hash map of the same bytes.
#include <absl/container/flat_hash_map.h>
#include <benchmark/benchmark.h>

#include <map>

#include "objects.h"

namespace vu::bench {
namespace {

using Map = absl::flat_hash_map<std::string, std::string>;

std::vector<std::string> identities(std::size_t count) {
  std::vector<std::string> all;
  all.reserve(count);
  for (std::size_t i = 0; i < count; ++i) all.push_back(identity_of(names(count)[i]));
  return all;
}

// Everything that is measured with `count` objects; made once.
struct Contents {
  explicit Contents(std::size_t count)
      : keys(identities(count)), engine("values" + std::to_string(count)) {
    engine.fill(count);
    for (std::size_t i = 0; i < count; ++i) map[keys[i]] = bytes_of(i);
  }

  std::vector<std::string> keys;
  Engine engine;
  Map map;
};

Contents& contents(std::size_t count) {
  static auto& all = *new std::map<std::size_t, Contents>();
  return all.try_emplace(count, count).first->second;
}

std::size_t count_of(const benchmark::State& state) {
  return static_cast<std::size_t>(state.range(0));
}

void engine_get(benchmark::State& state) {
  Contents& all = contents(count_of(state));
  Numbers numbers(count_of(state));
  store::Store& store = all.engine.store();
  // cppcheck-suppress variableScope
  std::string value;  // keeps its memory
  for (auto _ : state) {
    store::Shelf& shelf = all.engine.shelf();
    const store::Cell cell = store.find(shelf, all.keys[numbers.next()]);
    value = shelf.object(cell).value();
    benchmark::DoNotOptimize(value.data());
  }
}

void map_get(benchmark::State& state) {
  Contents& all = contents(count_of(state));
  Numbers numbers(count_of(state));
  // cppcheck-suppress variableScope
  std::string value;  // keeps its memory
  for (auto _ : state) {
    value = all.map.find(all.keys[numbers.next()])->second;
    benchmark::DoNotOptimize(value.data());
  }
}

void engine_set(benchmark::State& state) {
  Contents& all = contents(count_of(state));
  Numbers numbers(count_of(state));
  store::Request request = all.engine.request(store::Command::kSet);
  request.value = bytes_of(7);
  for (auto _ : state) {
    request.identity = all.keys[numbers.next()];
    all.engine.submit(request);
  }
}

void map_set(benchmark::State& state) {
  Contents& all = contents(count_of(state));
  Numbers numbers(count_of(state));
  const std::string value = bytes_of(7);
  for (auto _ : state) all.map.find(all.keys[numbers.next()])->second = value;
}

// Stores what is not there, and deletes it again.
void engine_add(benchmark::State& state) {
  Contents& all = contents(count_of(state));
  store::Request set = all.engine.request(store::Command::kSet);
  set.value = bytes_of(7);
  set.identity = identity_of("none of them    ");
  store::Request del = all.engine.request(store::Command::kDel);
  del.identity = set.identity;
  for (auto _ : state) {
    all.engine.submit(set);
    all.engine.submit(del);
  }
}

void map_add(benchmark::State& state) {
  Contents& all = contents(count_of(state));
  const std::string key = identity_of("none of them    ");
  const std::string value = bytes_of(7);
  for (auto _ : state) {
    all.map[key] = value;
    all.map.erase(key);
  }
}

// The same through the C interface: messages in, a message out.
void interface_get(benchmark::State& state) {
  Contents& all = contents(count_of(state));
  Numbers numbers(count_of(state));
  Message message;
  for (auto _ : state) {
    message.set_key(names(count_of(state))[numbers.next()]);
    vu_mom_get(
        all.engine.handle(), 0, message.address(),
        [](void*, const vu_mom_reply* reply, void*) { benchmark::DoNotOptimize(reply->data); },
        nullptr);
    vu_platform_deliver(all.engine.handle(), 1);
  }
}

void interface_set(benchmark::State& state) {
  Contents& all = contents(count_of(state));
  Numbers numbers(count_of(state));
  Message message;
  message.set_bytes(std::string(kValueSize - 2, '.'));
  for (auto _ : state) {
    message.set_key(names(count_of(state))[numbers.next()]);
    vu_mom_set_ext(all.engine.handle(), 0, nullptr, message.address(), nullptr, nullptr);
  }
}

void sizes(benchmark::internal::Benchmark* one) { one->Arg(1000)->Arg(100000)->Arg(1000000); }

BENCHMARK(engine_get)->Name("get/engine")->Apply(sizes);
BENCHMARK(map_get)->Name("get/flat_hash_map")->Apply(sizes);
BENCHMARK(interface_get)->Name("get/C interface")->Apply(sizes);
BENCHMARK(engine_set)->Name("set/engine")->Apply(sizes);
BENCHMARK(map_set)->Name("set/flat_hash_map")->Apply(sizes);
BENCHMARK(interface_set)->Name("set/C interface")->Apply(sizes);
BENCHMARK(engine_add)->Name("set and delete/engine")->Apply(sizes);
BENCHMARK(map_add)->Name("set and delete/flat_hash_map")->Apply(sizes);

}  // namespace
}  // namespace vu::bench
