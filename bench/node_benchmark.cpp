#include <benchmark/benchmark.h>

#include <chrono>

#include "bench/floor.h"
#include "bench/null_host.h"

/// The node over the null GL and the floor below it, timed. Creation, first frame, import and destruction are
/// here what the node itself adds to what the GL takes for them.

namespace {

using bench::NodeSetup;
using bench::NullNode;

void SteadyFrame(benchmark::State& state, const NodeSetup& setup) {
    NullNode node(BENCH_NODE_LIBRARY, setup);
    node.Frame();
    for (auto _ : state) {
        node.Frame();
    }
}

void FloorFrame(benchmark::State& state) {
    bench::Floor floor(1920, 1080);
    for (auto _ : state) {
        floor.Frame(bench::Grid());
        benchmark::ClobberMemory();
    }
}

void DumpCallsFrame(benchmark::State& state) {
    bench::Floor floor(1920, 1080);
    floor.Frame(bench::Grid());
    bench::DumpCalls calls;
    for (auto _ : state) {
        calls.Frame(bench::Grid(), floor.Mesh());
    }
}

/// Seconds that `action` takes.
template <typename Action>
double Seconds(const Action& action) {
    const auto start = std::chrono::steady_clock::now();
    action();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void Create(benchmark::State& state) {
    for (auto _ : state) {
        std::unique_ptr<NullNode> node;
        state.SetIterationTime(
            Seconds([&] { node = std::make_unique<NullNode>(BENCH_NODE_LIBRARY, NodeSetup{}); }));
    }
}

void FirstFrame(benchmark::State& state) {
    for (auto _ : state) {
        NullNode node(BENCH_NODE_LIBRARY, {});
        state.SetIterationTime(Seconds([&] { node.Frame(); }));
    }
}

void ImportFrame(benchmark::State& state) {
    NullNode node(BENCH_NODE_LIBRARY, {});
    node.Frame();
    for (auto _ : state) {
        node.ReplaceBuffers();
        state.SetIterationTime(Seconds([&] { node.Frame(); }));
    }
}

void Destroy(benchmark::State& state) {
    for (auto _ : state) {
        auto node = std::make_unique<NullNode>(BENCH_NODE_LIBRARY, NodeSetup{});
        node->Frame();
        state.SetIterationTime(Seconds([&] { node.reset(); }));
    }
}

BENCHMARK_CAPTURE(SteadyFrame, grid, NodeSetup{});
BENCHMARK_CAPTURE(SteadyFrame, unity, NodeSetup{1920, 1080, 1, false, false});
BENCHMARK_CAPTURE(SteadyFrame, dumps, NodeSetup{1920, 1080, 1, true, true});
BENCHMARK_CAPTURE(SteadyFrame, 640x480, NodeSetup{640, 480});
BENCHMARK_CAPTURE(SteadyFrame, 3840x2160, NodeSetup{3840, 2160});
BENCHMARK_CAPTURE(SteadyFrame, 64 buffers, NodeSetup{1920, 1080, 64});
BENCHMARK(FloorFrame);
BENCHMARK(DumpCallsFrame);
BENCHMARK(Create)->UseManualTime()->Iterations(2000);
BENCHMARK(FirstFrame)->UseManualTime()->Iterations(2000);
BENCHMARK(ImportFrame)->UseManualTime()->Iterations(2000);
BENCHMARK(Destroy)->UseManualTime()->Iterations(2000);

}  // namespace

BENCHMARK_MAIN();
