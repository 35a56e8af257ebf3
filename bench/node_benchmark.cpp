#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

#include "bench/floor.h"
#include "bench/null_host.h"
#include "bench/seconds.h"
#include "desk/warp/grid_size.h"
#include "node/dewarp/gpu/gpumesh.h"
#include "utils/orbamutex.h"

/// The node over the null GL and the floor below it, timed. Creation, first frame, import and destruction are
/// here what the node itself adds to what the GL takes for them.

namespace {

using bench::NodeSetup;
using bench::NullNode;
using bench::Seconds;

void SteadyFrame(benchmark::State& state, const NodeSetup& setup) {
    NullNode node(BENCH_NODE_LIBRARY, setup);
    node.Frame();
    while (state.KeepRunning()) {
        node.Frame();
    }
}

void FloorFrame(benchmark::State& state) {
    bench::Floor floor(1920, 1080);
    while (state.KeepRunning()) {
        floor.Frame(bench::Grid());
        benchmark::ClobberMemory();
    }
}

void DumpCallsFrame(benchmark::State& state) {
    bench::Floor floor(1920, 1080);
    floor.Frame(bench::Grid());
    bench::DumpCalls calls;
    while (state.KeepRunning()) {
        calls.Frame(bench::Grid(), floor.Mesh());
    }
}

// Steps of the steady frame, each by itself: how much of the frame's time they can have.

void FirstPass(benchmark::State& state) {
    NullNode node(BENCH_NODE_LIBRARY, {});
    while (state.KeepRunning()) {
        node.FirstPass();
    }
}

void Mesh(benchmark::State& state) {
    std::vector<float> vertices(desk::MeshFloats);
    std::vector<float> texCoordinates(vertices.size());
    const float* grid = &bench::Grid().gridTransformArray[0].x;
    while (state.KeepRunning()) {
        UpdateMesh(vertices.data(), texCoordinates.data(), grid,
                   {desk::MeshColumns, desk::MeshRows, 1920, 1080, 1920, 1080}, true);
        benchmark::ClobberMemory();
    }
}

void GridCopy(benchmark::State& state) {
    float copy[desk::GridPoints * 2];
    while (state.KeepRunning()) {
        std::memcpy(copy, bench::Grid().gridTransformArray, sizeof(copy));
        benchmark::DoNotOptimize(copy);
    }
}

void LockAndUnlock(benchmark::State& state) {
    Orba::Mutex* mutex = Orba::Mutex::Create("bench");
    while (state.KeepRunning()) {
        mutex->Lock();
        mutex->Unlock();
    }
    mutex->Destroy();
}

void Create(benchmark::State& state) {
    while (state.KeepRunning()) {
        std::unique_ptr<NullNode> node;
        state.SetIterationTime(
            Seconds([&] { node = std::make_unique<NullNode>(BENCH_NODE_LIBRARY, NodeSetup{}); }));
    }
}

void FirstFrame(benchmark::State& state) {
    while (state.KeepRunning()) {
        NullNode node(BENCH_NODE_LIBRARY, {});
        state.SetIterationTime(Seconds([&] { node.Frame(); }));
    }
}

void ImportFrame(benchmark::State& state) {
    NullNode node(BENCH_NODE_LIBRARY, {});
    node.Frame();
    while (state.KeepRunning()) {
        node.ReplaceBuffers();
        state.SetIterationTime(Seconds([&] { node.Frame(); }));
    }
}

void Destroy(benchmark::State& state) {
    while (state.KeepRunning()) {
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
BENCHMARK(FirstPass);
BENCHMARK(Mesh);
BENCHMARK(GridCopy);
BENCHMARK(LockAndUnlock);
BENCHMARK(DumpCallsFrame);
BENCHMARK(Create)->UseManualTime()->Iterations(2000);
BENCHMARK(FirstFrame)->UseManualTime()->Iterations(2000);
BENCHMARK(ImportFrame)->UseManualTime()->Iterations(2000);
BENCHMARK(Destroy)->UseManualTime()->Iterations(2000);

}  // namespace

BENCHMARK_MAIN();
