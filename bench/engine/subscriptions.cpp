// What a change costs where many subscribe, one of them to the changed object.
#include <benchmark/benchmark.h>

#include <map>
#include <memory>

#include "objects.h"

namespace vu::bench {
namespace {

std::int32_t ignore(void*, const vu_mom_reply* reply, void*) {
  benchmark::DoNotOptimize(reply->data);
  return 0;
}

// A store with as many subscriptions, each to an object of its own.
Engine& subscribed(std::size_t count) {
  static auto& all = *new std::map<std::size_t, std::unique_ptr<Engine>>();
  std::unique_ptr<Engine>& engine = all[count];
  if (!engine) {
    engine = std::make_unique<Engine>("subscriptions" + std::to_string(count));
    Message message;
    for (std::size_t i = 0; i < count; ++i) {
      message.set_key(names(count)[i]);
      vu_mom_subscribe(engine->handle(), 0, message.address(), 1, ignore, nullptr);
    }
  }
  return *engine;
}

void set_and_deliver(benchmark::State& state) {
  const auto count = static_cast<std::size_t>(state.range(0));
  Engine& engine = subscribed(count);
  Numbers numbers(count);
  Message message;
  message.set_bytes(std::string(kValueSize - 2, '.'));
  for (auto _ : state) {
    message.set_key(names(count)[numbers.next()]);
    vu_mom_set_ext(engine.handle(), 0, nullptr, message.address(), nullptr, nullptr);
    vu_platform_deliver(engine.handle(), 1);
  }
}

void subscribe_and_end(benchmark::State& state) {
  Engine& engine = subscribed(static_cast<std::size_t>(state.range(0)));
  Message message;
  message.set_key("none of them    ");
  for (auto _ : state) {
    vu_mom_subscribe(engine.handle(), 0, message.address(), 1, ignore, nullptr);
    vu_mom_unsubscribe(engine.handle(), 0, message.address(), 1, nullptr, nullptr);
    vu_platform_deliver(engine.handle(), 1);
  }
}

void sizes(benchmark::internal::Benchmark* one) { one->Arg(10)->Arg(1000)->Arg(100000); }

BENCHMARK(set_and_deliver)->Name("set, its event delivered/C interface")->Apply(sizes);
BENCHMARK(subscribe_and_end)->Name("subscribe and unsubscribe/C interface")->Apply(sizes);

}  // namespace
}  // namespace vu::bench
