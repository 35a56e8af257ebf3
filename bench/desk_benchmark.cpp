#include <benchmark/benchmark.h>

#include <algorithm>
#include <iostream>
#include <memory>
#include <opencv2/imgproc.hpp>

#include "bench/lifecycle.h"
#include "bench/peers.h"
#include "desk/host/desk_host.h"
#include "desk/host/desk_node.h"
#include "desk/measure/quality.h"

/// Real pictures: the node through the desk, the bare loop on the same GL, and the peers. Every one is given
/// the same picture and the same warp, and reports how close its picture is to the desk's ("psnr", dB).

namespace {

using bench::Seconds;
using desk::Nv12;

/// About the image's centre, an output pixel shows what lies at scale * R(roll) * pixel + (x, y) of the
/// input.
constexpr desk::CameraPose pose = {7.25, -4.5, -0.01, 0.9};

/// The desk's host, one in the process.
desk::DeskHost& Host() {
    static desk::DeskHost host({BENCH_NODE_LIBRARY, BENCH_SYSTEM_LIBRARY_DIR, {}, nullptr, 0});
    return host;
}

/// Soft noise, detailed enough to tell a good interpolation from a bad one.
Nv12 MakeScene(cv::Size size) {
    constexpr double Softness = 1.5;  // sigma in samples
    cv::setRNGSeed(1);
    Nv12 picture(size);
    for (const cv::Mat& plane : {picture.luma, picture.chroma}) {
        cv::randu(plane, 0, 256);
        cv::GaussianBlur(plane, plane, {}, Softness);
    }
    return picture;
}

/// A buffer's planes.
Nv12 View(desk::GrallocBuffer& buffer) {
    return {{static_cast<int>(buffer.Width()), static_cast<int>(buffer.Height())},
            buffer.Luma(),
            buffer.Chroma(),
            buffer.Stride()};
}

/// One node of the desk with one buffer per direction.
struct DeskWarp {
    explicit DeskWarp(cv::Size s = {1920, 1080}) : size(s), grid(bench::MakeGrid(pose, size)) {}
    void Create() {
        node = Host().CreateNode(desk::Variant::RealTime);
    }
    void Prepare() {
        node->Negotiate({static_cast<uint32_t>(size.width), static_cast<uint32_t>(size.height)},
                        {0.0F, 0.0F});
        NextBuffers();
    }
    void NextBuffers() {
        input = node->AllocateInput();
        output = node->AllocateOutput();
        const Nv12 scene = MakeScene(size);
        const Nv12 shown = View(*input);
        scene.luma.copyTo(shown.luma);
        scene.chroma.copyTo(shown.chroma);
    }
    void Frame() {
        if (node->Process(++requestId, &grid, *input, *output) != 0) {
            throw std::runtime_error("expected the node to render the request, got a failure");
        }
    }
    void Destroy() {
        node.reset();
    }

    cv::Size size;
    std::unique_ptr<desk::DeskNode> node;
    IPEICAGridTransform grid;
    std::shared_ptr<desk::GrallocBuffer> input;
    std::shared_ptr<desk::GrallocBuffer> output;
    uint64_t requestId = 0;
};

cv::Size SizeOf(const benchmark::State& state) {
    const auto width = static_cast<int>(state.range(0));
    return {width, width * 9 / 16};
}

/// Of luma and chroma together, dB, without a border of an eighth on every side; 99 for equal pictures.
double Psnr(const Nv12& a, const Nv12& b) {
    desk::PlaneMeter meter;
    const auto add = [&meter](const cv::Mat& one, const cv::Mat& other) {
        const cv::Rect middle(one.cols / 8, one.rows / 8, one.cols - one.cols / 4, one.rows - one.rows / 4);
        meter.Add(one(middle), other(middle));
    };
    add(a.luma, b.luma);
    add(a.chroma, b.chroma);
    return std::min(99.0, meter.Psnr());
}

double Median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

/// A peer in turn with the desk: whatever else the machine does then hits both. Counters: medians of the
/// peer's and the desk's milliseconds and of desk / peer.
void PeerFrame(benchmark::State& state, bench::Peer (*make)(cv::Size, const desk::CameraPose&)) {
    DeskWarp desk(SizeOf(state));
    desk.Create();
    desk.Prepare();
    desk.Frame();
    const Nv12 input = MakeScene(desk.size);
    Nv12 output(desk.size);
    const bench::Peer peer = make(desk.size, pose);
    peer(input, output);
    std::vector<double> peerTimes;
    std::vector<double> deskTimes;
    std::vector<double> ratios;
    while (state.KeepRunning()) {
        deskTimes.push_back(1000.0 * Seconds([&] { desk.Frame(); }));
        peerTimes.push_back(1000.0 * Seconds([&] { peer(input, output); }));
        ratios.push_back(deskTimes.back() / peerTimes.back());
        state.SetIterationTime(peerTimes.back() / 1000.0);
    }
    state.counters["psnr"] = Psnr(output, View(*desk.output));
    state.counters["peer_ms"] = Median(peerTimes);
    state.counters["desk_ms"] = Median(deskTimes);
    state.counters["ratio"] = Median(ratios);
}

void Sizes(benchmark::internal::Benchmark* benchmark) {
    benchmark->Arg(1280)->Arg(1920)->Arg(3840)->UseManualTime()->Unit(benchmark::kMillisecond);
}

BENCHMARK_CAPTURE(PeerFrame, bare loop, bench::BareLoop)
    ->Apply(Sizes)
    ->MinTime(3.0);  // a few percent are to be told apart
BENCHMARK_CAPTURE(PeerFrame, OpenCV remap, bench::OpenCvRemap)->Apply(Sizes);
BENCHMARK_CAPTURE(PeerFrame, vidstab transform, bench::VidStab)->Apply(Sizes);

void Often(benchmark::internal::Benchmark* benchmark) {
    benchmark->UseManualTime()->Iterations(10)->Unit(benchmark::kMillisecond);
}
using bench::TimeEvent;
BENCH_LIFE(DeskWarp, Often);

}  // namespace

int main(int argc, char** argv) {
    try {
        benchmark::Initialize(&argc, argv);
        Host().CreateNode(desk::Variant::RealTime);
        benchmark::AddCustomContext("renderer", Host().Counters().gl.value().renderer);
        benchmark::RunSpecifiedBenchmarks();
    } catch (const std::exception& error) {
        std::cerr << "bench-desk: " << error.what() << "\n";
        return 1;
    }
    return 0;
}
