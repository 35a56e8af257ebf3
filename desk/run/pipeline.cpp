#include "desk/run/pipeline.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <stdexcept>
#include <utility>

#include "desk/base/usage_error.h"
#include "desk/run/gl_info.h"
#include "desk/warp/warp_map.h"

namespace desk {
namespace {

constexpr int64_t SpareBuffers = 4;  // in rotation beside those that are held

Nv12 View(GrallocBuffer& buffer) {
    const cv::Size size(static_cast<int>(buffer.Width()), static_cast<int>(buffer.Height()));
    return {size, buffer.Luma(), buffer.Chroma(), buffer.Stride()};
}

/// What the node makes of one direction: the output widened by the margin, both rounded down to even numbers.
int Widened(int output, float margin) {
    const auto even = [](int pixels) { return pixels - pixels % 2; };
    return even(output) + even(static_cast<int>(static_cast<float>(output) * margin));
}

float MarginFor(const char* direction, int input, int output) {
    if (input % 2 != 0 || input < output) {
        throw UsageError(
            fmt::format("the clip is {} pixels {}, and no margin makes the node ask for that with an output "
                        "of {}; expected "
                        "an even number, and no less than the output's",
                        input, direction, output));
    }
    float margin = static_cast<float>(input - output) / static_cast<float>(output);
    while (Widened(output, margin) < input) {
        margin = std::nextafter(margin, std::numeric_limits<float>::max());
    }
    return margin;
}

/// The node does not say when it could not write one of its three dump files, so their lines are counted.
void RequireWholeDumps(const Output& dumps, int64_t frames) {
    const std::filesystem::directory_iterator files(dumps.Work());
    const auto whole = std::count_if(begin(files), end(files), [frames](const auto& file) {
        std::ifstream in(file.path(), std::ios::binary);
        return std::count(std::istreambuf_iterator<char>(in), {}, '\n') == frames;
    });
    if (whole != 3) {
        throw std::runtime_error(
            fmt::format("the node could not write all its dumps to {}; expected room for 3 files of {} lines",
                        dumps.Place().string(), frames));
    }
}

constexpr const char* SystemLibraryFolder = "desk/system/lib64";

uint64_t OpenFds() {
    const std::filesystem::directory_iterator open("/proc/self/fd");
    return static_cast<uint64_t>(std::distance(begin(open), end(open)));
}

Json SizeJson(cv::Size size) {
    return {{"width", size.width}, {"height", size.height}};
}

/// What the program loads lies in the build folder that the program itself lies in, in bin.
std::filesystem::path Built(const char* file) {
    const auto place = std::filesystem::read_symlink("/proc/self/exe").parent_path().parent_path() / file;
    if (!std::filesystem::exists(place)) {
        throw std::runtime_error(
            fmt::format("expected {}, which is built beside the program", place.string()));
    }
    return place;
}

GlInfo UsableGl(cv::Size input) {
    GlInfo gl = DescribeGl(Built(SystemLibraryFolder));
    if (gl.renderer.empty()) {
        throw std::runtime_error(
            "the machine's EGL and OpenGL ES give no context; expected a driver such as Mesa's");
    }
    if (std::max(input.width, input.height) > gl.maxTextureSize) {
        throw UsageError(
            fmt::format("an input of {} x {} is too large for {}; expected at most {} pixels each way",
                        input.width, input.height, gl.renderer, gl.maxTextureSize));
    }
    return gl;
}

/// Says on stderr and in the results what is at work.
HostOptions Announce(const std::string& command, const RunOptions& options, const Sizing& sizing,
                     const std::filesystem::path& dumps, Json& json) {
    const cv::Size input = InputFor(sizing.output, sizing.margin);
    const std::filesystem::path library = Built("lib/com.oxa.node.dewarp.so");
    const GlInfo gl = UsableGl(input);
    json = {{"schema", 1},
            {"command", command},
            {"clip", options.clip.string()},
            {"output", options.out.string()},
            {"credit", options.credit},
            {"variant", NameOf(options.variant)},
            {"gl_renderer", gl.renderer},
            {"library", library.string()},
            {"input_size", SizeJson(input)},
            {"output_size", SizeJson(sizing.output)},
            {"crop", static_cast<double>(sizing.output.area()) / input.area()}};
    fmt::print(stderr, "dewarp-desk: {}, {}, {}, input {}x{}, output {}x{}, margin {},{}\n",
               library.filename().string(), gl.renderer, NameOf(options.variant), input.width, input.height,
               sizing.output.width, sizing.output.height, sizing.margin.horizontal, sizing.margin.vertical);
    HostOptions host{library, Built(SystemLibraryFolder), dumps};
    host.luxBits = options.luxBits;
    return host;
}

ClipFormat OutputFormat(const ClipReader& reader, cv::Size output) {
    ClipFormat format = reader.Format();
    format.size = output;
    return format;
}

}  // namespace

Margin MarginFor(cv::Size input, cv::Size output) {
    return {MarginFor("wide", input.width, output.width), MarginFor("high", input.height, output.height)};
}

cv::Size InputFor(cv::Size output, Margin margin) {
    return {Widened(output.width, margin.horizontal), Widened(output.height, margin.vertical)};
}

Pipeline::Pipeline(const std::string& command, const RunOptions& options, ClipReader& reader,
                   const Sizing& sizing, int64_t held, Observer observer)
    : options_(options),
      reader_(reader),
      sizing_(sizing),
      dumps_(options.dumpDir.empty()
                 ? nullptr
                 : std::make_unique<Output>(options.dumpDir, Output::Kind::DumpFolder, false)),
      host_(Announce(command, options, sizing, dumps_ ? dumps_->Work() : "", results_.json)),
      recording_(options, OutputFormat(reader, sizing.output), results_),
      progress_(options.progress, reader.ExpectedFrames()),
      observer_(std::move(observer)) {
    if (options.onDamage == OnDamage::Skip && !options.truth.empty()) {
        throw UsageError("--truth is compared frame by frame; expected no --damaged skip with it");
    }
    results_.json["frames_per_second"] = reader.Format().FramesPerSecond();
    host_.SetDumps(dumps_ != nullptr);
    node_ = host_.CreateNode(options.variant);
    const Negotiated sizes = node_->Negotiate(
        {static_cast<uint32_t>(sizing.output.width), static_cast<uint32_t>(sizing.output.height)},
        sizing.margin);
    const cv::Size input = InputFor(sizing.output, sizing.margin);
    if (cv::Size(static_cast<int>(sizes.input.width), static_cast<int>(sizes.input.height)) != input) {
        throw std::runtime_error(fmt::format("the node asks for an input of {} x {}; expected {} x {}",
                                             sizes.input.width, sizes.input.height, input.width,
                                             input.height));
    }
    const int64_t spare = SpareBuffers + static_cast<int64_t>(options.inFlight) - 1;
    std::generate_n(std::back_inserter(inputs_), held + spare, [this] { return node_->AllocateInput(); });
    std::generate_n(std::back_inserter(outputs_), spare, [this] { return node_->AllocateOutput(); });
    if (options.inFlight > 1) {
        driver_ = std::make_unique<PipelinedDriver>(host_, *node_, options.inFlight, options.inFlight);
    }
}

bool Pipeline::Read() {
    if (Interrupted()) {
        return false;
    }
    Nv12 picture = Input(taken_);
    const StageTimer timer(results_, "read");
    const bool isRead = reader_.Read(picture);
    if (isRead) {
        numbers_.push_back(reader_.Frame());
        taken_++;
    }
    return isRead;
}

Nv12 Pipeline::Input(int64_t frame) {
    return View(InputBuffer(frame));
}

void Pipeline::Show(uint64_t requestId, const IPEICAGridTransform& grid, const Json& details) {
    inFlight_.push_back({requestId, grid, details, {}});
    Request& request = inFlight_.back();
    const NodeFrame frame{requestId, &request.grid, &InputBuffer(shown_), &OutputBuffer(shown_)};
    ++shown_;
    if (driver_) {
        request.result = driver_->Submit(frame);
    } else {
        request.result = std::async(std::launch::deferred, [this, frame] {
            return node_->Process(frame.requestId, frame.grid, *frame.input, *frame.output);
        });
    }
    if (inFlight_.size() == options_.inFlight) {
        Collect();
    }
}

void Pipeline::Drain() {
    while (!inFlight_.empty()) {
        Collect();
    }
}

void Pipeline::Collect() {
    Request& request = inFlight_.front();
    const auto frame = static_cast<int64_t>(results_.frames.size());
    const int64_t number = Number(frame);
    uint32_t result = LumResultSuccess;
    {
        const StageTimer timer(results_, "node");
        result = request.result.get();
    }
    if (result != LumResultSuccess) {
        throw std::runtime_error(fmt::format("the {} node failed request {} (frame {} of the clip): {}",
                                             NameOf(node_->Kind()), request.id, number, ResultText(result)));
    }
    const RenderedFrame shown{number, request.grid, Input(frame), View(OutputBuffer(frame))};
    const SideUse used = WarpMap(shown.grid, shown.input.luma.size(), sizing_.output).MarginUse();
    mostUsed_ = {std::max(mostUsed_.left, used.left), std::max(mostUsed_.top, used.top),
                 std::max(mostUsed_.right, used.right), std::max(mostUsed_.bottom, used.bottom)};
    results_.frames.push_back(
        {{"frame", number},
         {"request", request.id},
         {"margin_used",
          {{"left", used.left}, {"top", used.top}, {"right", used.right}, {"bottom", used.bottom}}}});
    results_.frames.back().update(request.details);
    recording_.Add(shown.input, shown.output);
    if (observer_) {
        observer_(shown);
    }
    progress_.Step(frame + 1);
    inFlight_.pop_front();
}

ExitCode Pipeline::Finish() {
    Drain();
    driver_.reset();
    progress_.Finish(Shown());
    if (InterruptedAtOnce(Shown())) {
        return WasInterrupted;
    }
    results_.json["damaged_frames"] = Json::array();
    for (const FrameRange& range : reader_.DamagedFrames()) {
        results_.json["damaged_frames"].push_back({{"first", range.first}, {"last", range.end - 1}});
    }
    // The node keeps every image that it makes of a buffer until it is destroyed.
    const uint64_t imports = host_.Counters().gl.value_or(DeskGlCounters{}).liveImages;
    results_.json["counters"] = {{"imports", imports},
                                 {"cache_hits", 2 * results_.frames.size() - imports},
                                 {"live_images", imports},
                                 {"open_fds", OpenFds()}};
    node_->Destroy();
    node_.reset();
    host_.CheckTornDown();
    if (dumps_) {
        RequireWholeDumps(*dumps_, Shown());
    }
    results_.findings = host_.State().contract.List();
    const auto margin = [](double most, int input, int output) -> Json {
        return {{"pixels_on_a_side", (input - output) / 2.0},
                {"most_used", most},
                {"negotiated", static_cast<double>(input) / output - 1},
                {"sufficient", 2 * most / output}};
    };
    const cv::Size input = InputFor(sizing_.output, sizing_.margin);
    results_.json["margin_use"] = {
        {"horizontal", margin(std::max(mostUsed_.left, mostUsed_.right), input.width, sizing_.output.width)},
        {"vertical", margin(std::max(mostUsed_.top, mostUsed_.bottom), input.height, sizing_.output.height)}};
    recording_.Finish();
    const ExitCode code = Tell();
    if (dumps_) {
        dumps_->Publish();  // last: dumps of the same second may stand in the way
    }
    return code;
}

/// What was measured and what went wrong, in words.
ExitCode Pipeline::Tell() const {
    if (!results_.summary.empty() && options_.json != "-") {
        const Json node = ToJson(results_)["stage_ms"]["node"];
        fmt::print("{}: {}node call {:.1f} ms (p95 {:.1f}), {} findings\n", NameOf(options_.variant),
                   results_.summary, node["p50"].get<double>(), node["p95"].get<double>(),
                   results_.findings.size());
    }
    for (const FrameRange& range : reader_.DamagedFrames()) {
        fmt::print(stderr, "dewarp-desk: {} is damaged: skipped frames {} to {}\n", options_.clip.string(),
                   range.first, range.end - 1);
    }
    for (const std::string& finding : results_.findings) {
        fmt::print(stderr, "dewarp-desk: the node broke a rule: {}\n", finding);
    }
    for (const std::string& missed : results_.missedLimits) {
        fmt::print(stderr, "dewarp-desk: {}\n", missed);
    }
    if (Interrupted()) {
        fmt::print(stderr, "dewarp-desk: interrupted after {} frames{}\n", Shown(),
                   options_.out.empty() ? "" : "; " + options_.out.string() + " holds them");
        return WasInterrupted;
    }
    return results_.findings.empty() && results_.missedLimits.empty() ? Done : CheckFailed;
}

}  // namespace desk
