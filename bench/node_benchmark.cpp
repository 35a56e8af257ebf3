#include <benchmark/benchmark.h>

#include <cstring>
#include <optional>
#include <vector>

#include "bench/floor.h"
#include "bench/lifecycle.h"
#include "bench/null_host.h"
#include "desk/warp/grid_size.h"
#include "node/dewarp/gpu/gpumesh.h"
#include "utils/orbamutex.h"

/// The node over the null GL and the floor below it, timed. Creation, first frame, import and destruction are
/// here what the node itself adds to what the GL takes for them.

namespace {

using bench::NodeSetup;
using bench::NullNode;

void SteadyFrame(benchmark::State& state, const NodeSetup& setup) {
    NullNode node(BENCH_NODE_LIBRARY, setup);
    node.Frame();
    while (state.KeepRunning()) {
        node.Frame();
    }
}

void FloorFrame(benchmark::State& state) {
    while (state.KeepRunning()) {
        bench::FloorFrame(bench::Grid(), 1920, 1080);
        benchmark::ClobberMemory();
    }
}

void DumpCallsFrame(benchmark::State& state) {
    const float* mesh = bench::FloorFrame(bench::Grid(), 1920, 1080);
    while (state.KeepRunning()) {
        bench::DumpCallsFrame(bench::Grid(), mesh);
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

struct NullLife {
    void Create() {
        node.emplace(BENCH_NODE_LIBRARY, NodeSetup{});
    }
    void Prepare() {}
    void Frame() {
        node->Frame();
    }
    void NextBuffers() {
        node->ReplaceBuffers();
    }
    void Destroy() {
        node.reset();
    }

    std::optional<NullNode> node;
};

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
void Often(benchmark::internal::Benchmark* benchmark) {
    benchmark->UseManualTime()->Iterations(2000);
}
using bench::TimeEvent;
BENCH_LIFE(NullLife, Often);

}  // namespace

BENCHMARK_MAIN();
