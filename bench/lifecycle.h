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
constexpr const char* EventNames[] = {"Create", "FirstFrame", "ImportFrame", "Destroy"};

/// Takes one node after the other through its life and times one event of each. A `Life` is one node with
/// Create(), Prepare(), which is never timed, Frame(), NextBuffers(), after which a frame imports, and
/// Destroy().
template <typename Life>
void TimeEvent(benchmark::State& state, Event event) {
    while (state.KeepRunning()) {
        Life life;
        const auto run = [&](Event now, void (Life::*action)()) {
            const double seconds = Seconds([&] { (life.*action)(); });
            if (now == event) {
                state.SetIterationTime(seconds);
            }
        };
        run(Create, &Life::Create);
        if (event != Create) {
            life.Prepare();
            run(FirstFrame, &Life::Frame);
        }
        if (event == ImportFrame) {
            life.NextBuffers();
            run(ImportFrame, &Life::Frame);
        }
        run(Destroy, &Life::Destroy);
    }
}

/// A benchmark for each event, named after it.
template <typename Life>
bool RegisterEvents(int iterations, benchmark::TimeUnit unit) {
    for (const Event event : {Create, FirstFrame, ImportFrame, Destroy}) {
        benchmark::RegisterBenchmark(EventNames[event], TimeEvent<Life>, event)
            ->UseManualTime()
            ->Iterations(iterations)
            ->Unit(unit);
    }
    return true;
}

}  // namespace bench
