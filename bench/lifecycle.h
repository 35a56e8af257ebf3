#pragma once

#include <benchmark/benchmark.h>

#include <chrono>

namespace bench {

/// That `action` takes.
template <typename Action>
double Seconds(const Action& action) {
    const auto start = std::chrono::steady_clock::now();
    action();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

enum Event { Create, FirstFrame, ImportFrame, Destroy };

/// Takes one node after the other through its life and times one event of each. A `Life` is one node with
/// Create(), Prepare(), which is never timed, Frame(), NextBuffers(), after which a frame imports, and
/// Destroy().
template <typename Life, Event event>
void TimeEvent(benchmark::State& state) {
    while (state.KeepRunning()) {
        Life life;
        double seconds[Destroy + 1] = {};
        seconds[Create] = Seconds([&] { life.Create(); });
        life.Prepare();
        seconds[FirstFrame] = Seconds([&] { life.Frame(); });
        if (event == ImportFrame) {
            life.NextBuffers();
            seconds[ImportFrame] = Seconds([&] { life.Frame(); });
        }
        seconds[Destroy] = Seconds([&] { life.Destroy(); });
        state.SetIterationTime(seconds[event]);
    }
}

}  // namespace bench

/// A benchmark for each event of a Life, named after it; `set` gives them their time unit and their number.
#define BENCH_LIFE(Life, set)                                                                 \
    BENCHMARK_TEMPLATE(TimeEvent, Life, bench::Create)->Name("Create")->Apply(set);           \
    BENCHMARK_TEMPLATE(TimeEvent, Life, bench::FirstFrame)->Name("FirstFrame")->Apply(set);   \
    BENCHMARK_TEMPLATE(TimeEvent, Life, bench::ImportFrame)->Name("ImportFrame")->Apply(set); \
    BENCHMARK_TEMPLATE(TimeEvent, Life, bench::Destroy)->Name("Destroy")->Apply(set)
