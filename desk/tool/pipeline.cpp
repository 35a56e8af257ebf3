#include "desk/tool/pipeline.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <iterator>
#include <limits>
#include <stdexcept>

#include "desk/demo/gl_info.h"
#include "desk/tool/errors.h"
#include "desk/tool/warp_map.h"

namespace desk {
namespace {

constexpr size_t OutputBuffers = 4;

cv::Size ToCv(Size size) {
    return {static_cast<int>(size.width), static_cast<int>(size.height)};
}

Nv12 View(GrallocBuffer& buffer) {
    return {ToCv({buffer.Width(), buffer.Height()}), buffer.Luma(), buffer.Chroma(), buffer.Stride()};
}

/// What the node makes of one direction: the output widened by the margin, both rounded down to even numbers.
int Widened(int output, float margin) {
    const auto even = [](int pixels) { return pixels - pixels % 2; };
    return even(output) + even(static_cast<int>(static_cast<float>(output) * margin));
}

float MarginFor(const char* direction, int input, int output) {
    if (input % 2 != 0 || input < output) {
        throw UsageError(fmt::format(
            "no margin makes the node ask for an input {} pixels {} for an output of {}; expected an "
            "even number, and no less than the output's",
            input, direction, output));
    }
    float margin = static_cast<float>(input - output) / static_cast<float>(output);
    while (Widened(output, margin) < input) {
        margin = std::nextafter(margin, std::numeric_limits<float>::max());
    }
    return margin;
}

std::filesystem::path MadeDumpDir(const std::filesystem::path& dumpDir) {
    std::error_code error;
    if (!dumpDir.empty() && !std::filesystem::create_directories(dumpDir, error) && error) {
        throw std::runtime_error(
            fmt::format("the dump folder {} cannot be made: {}", dumpDir.string(), error.message()));
    }
    return dumpDir;
}

uint64_t OpenFds() {
    const std::filesystem::directory_iterator open("/proc/self/fd");
    return static_cast<uint64_t>(std::distance(begin(open), end(open)));
}

void RequireFits(cv::Size output, Margin margin, const GlInfo& gl) {
    const cv::Size input = InputFor(output, margin);
    if (std::max(input.width, input.height) > gl.maxTextureSize) {
        throw UsageError(
            fmt::format("an input of {} x {} is too large for {}; expected at most {} pixels each way",
                        input.width, input.height, gl.renderer, gl.maxTextureSize));
    }
}

}  // namespace

Margin MarginFor(cv::Size input, cv::Size output) {
    return {MarginFor("wide", input.width, output.width), MarginFor("high", input.height, output.height)};
}

cv::Size InputFor(cv::Size output, Margin margin) {
    return {Widened(output.width, margin.horizontal), Widened(output.height, margin.vertical)};
}

NodeLog::~NodeLog() {
    Release();
}

void NodeLog::Release() {
    if (stream_.rdbuf() == &kept_) {
        std::cerr << kept_.str();
        stream_.rdbuf(std::cerr.rdbuf());
    }
}

Pipeline::Pipeline(const CommonOptions& options, cv::Size output, Margin margin, int64_t inputBuffers,
                   RunResults& results)
    : results_(results),
      host_({DESK_NODE_LIBRARY, DESK_SYSTEM_LIBRARY_DIR, MadeDumpDir(options.dumpDir), &log_.Stream(),
             options.luxBits}) {
    const GlInfo gl = DescribeGl(DESK_SYSTEM_LIBRARY_DIR);
    if (gl.renderer.empty()) {
        throw std::runtime_error(
            "the machine's EGL and OpenGL ES give no context; expected a driver such as Mesa's");
    }
    RequireFits(output, margin, gl);
    host_.SetDumps(!options.dumpDir.empty());
    node_ = host_.CreateNode(options.variant);
    const Size wanted = {static_cast<uint32_t>(output.width), static_cast<uint32_t>(output.height)};
    results.variant = options.variant;
    results.renderer = gl.renderer;
    results.library = DESK_NODE_LIBRARY;
    results.margin = margin;
    results.sizes = node_->Negotiate(wanted, margin);
    std::generate_n(std::back_inserter(inputs_), inputBuffers, [this] { return node_->AllocateInput(); });
    std::generate_n(std::back_inserter(outputs_), OutputBuffers, [this] { return node_->AllocateOutput(); });
    fmt::print(stderr, "dewarp-desk: {}, {}, {}, input {}x{}, output {}x{}, margin {},{}\n",
               std::filesystem::path(results.library).filename().string(), results.renderer,
               NameOf(options.variant), InputSize().width, InputSize().height, OutputSize().width,
               OutputSize().height, margin.horizontal, margin.vertical);
    log_.Release();
}

cv::Size Pipeline::InputSize() const {
    return ToCv(results_.sizes.input);
}

cv::Size Pipeline::OutputSize() const {
    return ToCv(results_.sizes.output);
}

Nv12 Pipeline::Input(int64_t frame) {
    return View(*inputs_[static_cast<size_t>(frame) % inputs_.size()]);
}

Nv12 Pipeline::Render(int64_t frame, uint64_t requestId, const IPEICAGridTransform& grid) {
    GrallocBuffer& input = *inputs_[static_cast<size_t>(frame) % inputs_.size()];
    GrallocBuffer& output = *outputs_[static_cast<size_t>(frame) % outputs_.size()];
    const auto images = [this] { return host_.Counters().gl.value_or(DeskGlCounters{}).liveImages; };
    const uint64_t imagesBefore = images();
    uint32_t result = LumResultSuccess;
    {
        const StageTimer timer(results_, "node");
        result = node_->Process(requestId, &grid, input, output);
    }
    if (result != LumResultSuccess) {
        throw std::runtime_error(fmt::format("the {} node failed request {} (frame {} of the clip): {}",
                                             NameOf(node_->Kind()), requestId, frame, ResultText(result)));
    }
    RunCounters& counters = results_.counters;
    const uint64_t imagesAfter = images();
    const uint64_t imports = imagesAfter - std::min(imagesBefore, imagesAfter);
    counters.imports += imports;
    counters.cacheHits += 2 - std::min<uint64_t>(imports, 2);
    counters.liveImages = std::max(counters.liveImages, imagesAfter);
    counters.openFds = std::max(counters.openFds, OpenFds());
    results_.frames.push_back(
        {frame, requestId, WarpMap(grid, InputSize(), OutputSize()).MarginUse(), std::nullopt, std::nullopt});
    return View(output);
}

void Pipeline::Finish() {
    node_->Destroy();
    node_.reset();
    host_.CheckTornDown();
    results_.findings = host_.Findings().List();
}

}  // namespace desk
