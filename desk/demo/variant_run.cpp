#include "desk/demo/variant_run.h"

#include <fmt/format.h>

#include <chrono>
#include <memory>
#include <stdexcept>
#include <vector>

#include "desk/demo/comparison.h"
#include "desk/demo/scene.h"
#include "desk/demo/warp_grid.h"
#include "desk/host/desk_host.h"
#include "desk/host/desk_node.h"

namespace desk {
namespace {

constexpr size_t BuffersInRotation = 4;

cv::Size ToCv(Size size) {
    return {static_cast<int>(size.width), static_cast<int>(size.height)};
}

Nv12 View(GrallocBuffer& buffer) {
    return {ToCv({buffer.Width(), buffer.Height()}), buffer.Luma(), buffer.Chroma(), buffer.Stride()};
}

/// The input and output buffers of a pipeline, used in turn.
class BufferRing {
public:
    explicit BufferRing(DeskNode& node) {
        for (size_t i = 0; i < BuffersInRotation; i++) {
            inputs_.push_back(node.AllocateInput());
            outputs_.push_back(node.AllocateOutput());
        }
    }

    GrallocBuffer& Input(int frame) {
        return *inputs_[static_cast<size_t>(frame) % BuffersInRotation];
    }
    GrallocBuffer& Output(int frame) {
        return *outputs_[static_cast<size_t>(frame) % BuffersInRotation];
    }

private:
    std::vector<std::shared_ptr<GrallocBuffer>> inputs_;
    std::vector<std::shared_ptr<GrallocBuffer>> outputs_;
};

/// One request through the node. Returns the milliseconds that it took.
double TimedProcess(DeskNode& node, int frame, const IPEICAGridTransform& grid, BufferRing& buffers) {
    using Clock = std::chrono::steady_clock;
    const uint64_t requestId = static_cast<uint64_t>(frame) + 1;
    const Clock::time_point start = Clock::now();
    const uint32_t result = node.Process(requestId, &grid, buffers.Input(frame), buffers.Output(frame));
    const std::chrono::duration<double, std::milli> taken = Clock::now() - start;
    if (result != LumResultSuccess) {
        throw std::runtime_error(fmt::format("the {} node failed request {}: {}", NameOf(node.Kind()),
                                             requestId, ResultText(result)));
    }
    return taken.count();
}

void RunFrames(const DemoOptions& options, DeskNode& node, const cv::Mat& photo, Comparison& comparison,
               const std::function<void(int)>& progress, VariantResult& result) {
    const HandShake shake(options.seed, options.output.height);
    ShakyCamera::RequireRoom(result.input, result.output, shake.Bound());
    const ShakyCamera camera(shake, result.input, options.framesPerSecond);
    Scene scene(photo, result.input, shake.Bound());
    Nv12 ideal(result.output);
    WriteNv12(scene.Still(result.output), ideal);

    BufferRing buffers(node);
    std::vector<double> milliseconds;
    cv::Mat recorded;
    for (int frame = 0; frame < options.frames; frame++) {
        scene.Record(camera, frame, recorded);
        Nv12 input = View(buffers.Input(frame));
        WriteNv12(recorded, input);
        milliseconds.push_back(TimedProcess(node, frame, MakeWarpGrid(camera, frame), buffers));
        comparison.Add(input, View(buffers.Output(frame)), ideal);
        progress(frame + 1);
    }
    result.nodeCall = Summarize(milliseconds);
}

}  // namespace

VariantResult RunVariant(const DemoOptions& options, Variant variant, const cv::Mat& photo,
                         const std::filesystem::path& folder, const std::function<void(int)>& progress) {
    Comparison comparison(options, folder);

    DeskHost host({DEMO_NODE_LIBRARY, DEMO_SYSTEM_LIBRARY_DIR, folder});
    host.SetDumps(true);
    std::unique_ptr<DeskNode> node = host.CreateNode(variant);
    const Negotiated negotiated = node->Negotiate(
        {static_cast<uint32_t>(options.output.width), static_cast<uint32_t>(options.output.height)},
        options.margin);
    VariantResult result;
    result.input = ToCv(negotiated.input);
    result.output = ToCv(negotiated.output);
    result.inputAlignment = negotiated.inputAlignment[0];
    result.outputAlignment = negotiated.outputAlignment[0];
    RunFrames(options, *node, photo, comparison, progress, result);
    node->Destroy();
    node.reset();
    host.CheckTornDown();
    result.findings = host.Findings().List();
    comparison.Finish(result);
    return result;
}

}  // namespace desk
