#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>

#include "bench/bare_loop.h"
#include "bench/peers.h"
#include "desk/host/desk_host.h"
#include "desk/host/desk_node.h"

/// Real pictures: the node through the desk, the bare loop on the same GL, and the peers. Every one is given
/// the same picture and the same warp, and reports how close its picture is to the desk's ("psnr", dB).

namespace {

using bench::Picture;

const bench::Shake shake;

/// The desk's host, one in the process.
desk::DeskHost& Host() {
    static desk::DeskHost host([] {
        desk::HostOptions options;
        options.nodeLibrary = BENCH_NODE_LIBRARY;
        options.systemLibraryDir = BENCH_SYSTEM_LIBRARY_DIR;
        options.log = nullptr;
        options.luxBits = 0;
        return options;
    }());
    return host;
}

/// One node of the desk with one buffer per direction.
struct DeskWarp {
    DeskWarp(int w, int h) : width(w), height(h), node(Host().CreateNode(desk::Variant::RealTime)) {
        node->Negotiate({static_cast<uint32_t>(width), static_cast<uint32_t>(height)}, {0.0F, 0.0F});
        grid = bench::MakeGrid(shake, width, height);
        NextBuffers();
    }
    void NextBuffers() {
        input = node->AllocateInput();
        output = node->AllocateOutput();
        const Picture scene = bench::MakeScene(width, height);
        for (int row = 0; row < height; ++row) {
            std::memcpy(Row(input->Luma(), row), &scene.luma[At(row)], static_cast<size_t>(width));
        }
        for (int row = 0; row < height / 2; ++row) {
            std::memcpy(Row(input->Chroma(), row), &scene.chroma[At(row)], static_cast<size_t>(width));
        }
    }
    void Frame() {
        if (node->Process(++requestId, &grid, *input, *output) != 0) {
            throw std::runtime_error("expected the node to render the request, got a failure");
        }
    }
    Picture Rendered() const {
        Picture picture(width, height);
        for (int row = 0; row < height; ++row) {
            std::memcpy(&picture.luma[At(row)], Row(output->Luma(), row), static_cast<size_t>(width));
        }
        for (int row = 0; row < height / 2; ++row) {
            std::memcpy(&picture.chroma[At(row)], Row(output->Chroma(), row), static_cast<size_t>(width));
        }
        return picture;
    }
    size_t At(int row) const {
        return static_cast<size_t>(row) * static_cast<size_t>(width);
    }
    uint8_t* Row(uint8_t* plane, int row) const {
        return plane + static_cast<size_t>(row) * input->Stride();
    }

    int width;
    int height;
    std::unique_ptr<desk::DeskNode> node;
    std::shared_ptr<desk::GrallocBuffer> input;
    std::shared_ptr<desk::GrallocBuffer> output;
    IPEICAGridTransform grid = {};
    uint64_t requestId = 0;
};

Picture DeskPicture(int width, int height) {
    DeskWarp warp(width, height);
    warp.Frame();
    return warp.Rendered();
}

int WidthOf(const benchmark::State& state) {
    return static_cast<int>(state.range(0));
}
int HeightOf(const benchmark::State& state) {
    return WidthOf(state) * 9 / 16;
}

template <typename Action>
double Seconds(const Action& action) {
    const auto start = std::chrono::steady_clock::now();
    action();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double Median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

/// A peer with its constructor's size and Frame(input, warp, output), in turn with the desk: whatever else
/// the machine does then hits both. Counters: medians of the peer's and the desk's milliseconds and of desk /
/// peer.
template <typename Peer, typename Warp>
void PeerFrame(benchmark::State& state, const Warp& warp) {
    const int width = WidthOf(state);
    const int height = HeightOf(state);
    DeskWarp desk(width, height);
    desk.Frame();
    const Picture input = bench::MakeScene(width, height);
    Picture output(width, height);
    Peer peer(width, height);
    peer.Frame(input, warp, output);
    std::vector<double> peerTimes;
    std::vector<double> deskTimes;
    std::vector<double> ratios;
    while (state.KeepRunning()) {
        deskTimes.push_back(1000.0 * Seconds([&] { desk.Frame(); }));
        peerTimes.push_back(1000.0 * Seconds([&] { peer.Frame(input, warp, output); }));
        ratios.push_back(deskTimes.back() / peerTimes.back());
        state.SetIterationTime(peerTimes.back() / 1000.0);
    }
    state.counters["psnr"] = bench::Psnr(output, desk.Rendered());
    state.counters["peer_ms"] = Median(peerTimes);
    state.counters["desk_ms"] = Median(deskTimes);
    state.counters["ratio"] = Median(ratios);
}

void BareFrame(benchmark::State& state) {
    PeerFrame<bench::BareLoop>(state, bench::MakeGrid(shake, WidthOf(state), HeightOf(state)));
}
void OpenCvFrame(benchmark::State& state) {
    PeerFrame<bench::OpenCvRemap>(state, bench::MakeGrid(shake, WidthOf(state), HeightOf(state)));
}
void VidStabFrame(benchmark::State& state) {
    PeerFrame<bench::VidStab>(state, shake);
}
/// Making the one map that FFmpeg's filter is given, which a stabiliser has to do outside of it.
void LumaMap(benchmark::State& state) {
    bench::OpenCvRemap peer(WidthOf(state), HeightOf(state));
    const IPEICAGridTransform grid = bench::MakeGrid(shake, WidthOf(state), HeightOf(state));
    while (state.KeepRunning()) {
        state.SetIterationTime(Seconds([&] { benchmark::DoNotOptimize(peer.LumaMap(grid)); }));
    }
}

constexpr int Width = 1920;
constexpr int Height = 1080;

void Create(benchmark::State& state) {
    while (state.KeepRunning()) {
        std::unique_ptr<desk::DeskNode> node;
        state.SetIterationTime(Seconds([&] { node = Host().CreateNode(desk::Variant::RealTime); }));
    }
}

void FirstFrame(benchmark::State& state) {
    while (state.KeepRunning()) {
        DeskWarp warp(Width, Height);
        state.SetIterationTime(Seconds([&] { warp.Frame(); }));
    }
}

void ImportFrame(benchmark::State& state) {
    DeskWarp warp(Width, Height);
    warp.Frame();
    while (state.KeepRunning()) {
        warp.NextBuffers();
        state.SetIterationTime(Seconds([&] { warp.Frame(); }));
    }
}

void Destroy(benchmark::State& state) {
    while (state.KeepRunning()) {
        DeskWarp warp(Width, Height);
        warp.Frame();
        state.SetIterationTime(Seconds([&] { warp.node.reset(); }));
    }
}

/// What FFmpeg's filter needs as files in `folder`: the picture, its two maps of 16-bit pixel numbers, and
/// the picture the desk makes of it.
void WriteFilterFiles(const std::string& folder) {
    const auto write = [&folder](const char* name, const auto&... parts) {
        std::ofstream file(folder + "/" + name, std::ios::binary);
        (file.write(reinterpret_cast<const char*>(parts.data()),
                    static_cast<std::streamsize>(parts.size() * sizeof(parts[0]))),
         ...);
    };
    const Picture input = bench::MakeScene(Width, Height);
    const Picture rendered = DeskPicture(Width, Height);
    write("input.nv12", input.luma, input.chroma);
    write("desk.nv12", rendered.luma, rendered.chroma);
    std::vector<uint16_t> numbers;
    for (const float at : bench::OpenCvRemap(Width, Height).LumaMap(bench::MakeGrid(shake, Width, Height))) {
        numbers.push_back(static_cast<uint16_t>(std::lround(std::max(0.0F, at))));
    }
    const auto half = numbers.begin() + static_cast<std::ptrdiff_t>(numbers.size() / 2);
    write("x.gray16", std::vector<uint16_t>(numbers.begin(), half));
    write("y.gray16", std::vector<uint16_t>(half, numbers.end()));
}

void Sizes(benchmark::internal::Benchmark* benchmark) {
    benchmark->Arg(1280)->Arg(1920)->Arg(3840)->UseManualTime()->Unit(benchmark::kMillisecond);
}

void Once(benchmark::internal::Benchmark* benchmark) {
    benchmark->UseManualTime()->Iterations(10)->Unit(benchmark::kMillisecond);
}

BENCHMARK(BareFrame)->Apply(Sizes)->MinTime(3.0);  // a few percent are to be told apart
BENCHMARK(OpenCvFrame)->Apply(Sizes);
BENCHMARK(VidStabFrame)->Apply(Sizes);
BENCHMARK(LumaMap)->Arg(1920)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(Create)->Apply(Once);
BENCHMARK(FirstFrame)->Apply(Once);
BENCHMARK(ImportFrame)->Apply(Once);
BENCHMARK(Destroy)->Apply(Once);

}  // namespace

int main(int argc, char** argv) {
    try {
        if (argc == 3 && std::strcmp(argv[1], "--filter-files") == 0) {
            WriteFilterFiles(argv[2]);
            return 0;
        }
        benchmark::Initialize(&argc, argv);
        benchmark::AddCustomContext("renderer", bench::BareLoop(64, 64).Renderer());
        benchmark::RunSpecifiedBenchmarks();
    } catch (const std::exception& error) {
        std::cerr << "bench-desk: " << error.what() << "\n";
        return 1;
    }
    return 0;
}
