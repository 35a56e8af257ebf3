#if __has_include(<valgrind/callgrind.h>)
#include <valgrind/callgrind.h>
#else
// Other machines' programs run under an emulator, which counts from without.
#define CALLGRIND_ZERO_STATS
#define CALLGRIND_DUMP_STATS_AT(name) static_cast<void>(name)
#endif

#include <cstdlib>
#include <cstring>
#include <exception>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/floor.h"
#include "bench/null_host.h"
#include "desk/warp/grid_size.h"
#include "node/dewarp/gpu/gpumesh.h"

/// Runs steady frames for callgrind to count: one dump per scenario, named after it, of a hundred frames.
/// Collection is switched by the measured functions themselves (--toggle-collect), so that what is counted is
/// what runs inside of them. Without callgrind this is a smoke test.
///   bench-instructions                all scenarios
///   bench-instructions --grid-only    the first
///   bench-instructions --frames N     nothing but N steady frames

namespace {

constexpr int WarmUpFrames = 3;
constexpr int Frames = 100;

template <typename Frame>
void Measure(const std::string& scenario, int warmUpFrames, const Frame& frame) {
    for (int i = 0; i < warmUpFrames; ++i) {
        frame();
    }
    CALLGRIND_ZERO_STATS;
    for (int i = 0; i < Frames; ++i) {
        frame();
    }
    CALLGRIND_DUMP_STATS_AT(scenario.c_str());
}

void MeasureNode(const std::string& scenario, const bench::NodeSetup& setup, unsigned nodes = 1) {
    std::vector<std::unique_ptr<bench::NullNode>> all;
    for (unsigned i = 0; i < nodes; ++i) {
        all.push_back(std::make_unique<bench::NullNode>(BENCH_NODE_LIBRARY, setup));
    }
    size_t next = 0;
    const int warmUpFrames = WarmUpFrames * static_cast<int>(setup.buffers * nodes);
    Measure(scenario, warmUpFrames, [&] { all[next++ % nodes]->Frame(); });
}

void MeasureGrowth() {
    const bench::NodeSetup sizes[] = {{640, 480}, {1280, 720}, {1920, 1080}, {3840, 2160}};
    for (const bench::NodeSetup& setup : sizes) {
        MeasureNode("size " + std::to_string(setup.width) + "x" + std::to_string(setup.height), setup);
    }
    for (const unsigned nodes : {1U, 2U, 4U, 8U}) {
        MeasureNode("nodes " + std::to_string(nodes), {}, nodes);
    }
    for (const unsigned buffers : {1U, 2U, 4U, 8U, 16U, 32U, 64U}) {
        MeasureNode("buffers " + std::to_string(buffers), {1920, 1080, buffers});
    }
}

/// A floor that computed something else would be none.
void RequireNodesMesh(const float* floor) {
    constexpr size_t Floats = desk::MeshFloats;
    std::vector<float> mesh(2 * Floats);
    UpdateMesh(mesh.data(), mesh.data() + Floats, &bench::Grid().gridTransformArray[0].x,
               {desk::MeshColumns, desk::MeshRows, 1920, 1080, 1920, 1080}, true);
    if (std::memcmp(mesh.data(), floor, mesh.size() * sizeof(float)) != 0) {
        throw std::runtime_error("expected the floor to give the node's mesh bit for bit, got another");
    }
}

}  // namespace

int main(int argc, char** argv) {
    try {
        if (argc > 2 && std::strcmp(argv[1], "--frames") == 0) {
            bench::NullNode node(BENCH_NODE_LIBRARY, {});
            for (int i = std::atoi(argv[2]); i > 0; --i) {
                node.Frame();
            }
            return 0;
        }
        MeasureNode("grid", {});
        if (argc > 1 && std::strcmp(argv[1], "--grid-only") == 0) {
            return 0;
        }
        MeasureNode("unity", {1920, 1080, 1, false});
        MeasureNode("dumps", {1920, 1080, 1, true, true});
        bench::NullNode node(BENCH_NODE_LIBRARY, {});
        node.Frame();
        Measure("first pass", WarmUpFrames, [&] { node.FirstPass(); });
        const auto floor = [] { return bench::FloorFrame(bench::Grid(), 1920, 1080); };
        RequireNodesMesh(floor());
        Measure("floor", WarmUpFrames, floor);
        Measure("dump calls", WarmUpFrames, [mesh = floor()] { bench::DumpCallsFrame(bench::Grid(), mesh); });
        MeasureGrowth();
    } catch (const std::exception& error) {
        std::cerr << "bench-instructions: " << error.what() << "\n";
        return 1;
    }
    return 0;
}
