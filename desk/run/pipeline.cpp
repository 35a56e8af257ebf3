#include "desk/run/pipeline.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <utility>

#include "desk/base/usage_error.h"
#include "desk/run/environment.h"
#include "desk/warp/warp_map.h"

namespace desk {
namespace {

constexpr int64_t SpareBuffers = 4;  // in rotation beside those that are held

Nv12 View(GrallocBuffer& buffer) {
    const cv::Size size(static_cast<int>(buffer.Width()), static_cast<int>(buffer.Height()));
    return {size, buffer.Luma(), buffer.Chroma(), buffer.Stride()};
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

uint64_t OpenFds() {
    const std::filesystem::directory_iterator open("/proc/self/fd");
    return static_cast<uint64_t>(std::distance(begin(open), end(open)));
}

/// Says on stderr and in the results what is at work.
HostOptions Announce(const RunOptions& options, const NodeSizing& sizing, const Output* dumps,
                     RunFacts& facts) {
    HostOptions host{NodeLibraryFile(), SystemLibraryFolder(), dumps == nullptr ? "" : dumps->Work()};
    host.luxBits = options.luxBits;
    const cv::Size input = InputFor(sizing.output, sizing.margin);
    facts.clip = options.clip.string();
    facts.output = options.out.string();
    facts.credit = options.credit;
    facts.variant = NameOf(options.variant);
    facts.glRenderer = RendererFor(input);
    facts.library = host.nodeLibrary.string();
    facts.inputSize = input;
    facts.outputSize = sizing.output;
    fmt::print(stderr, "dewarp-desk: {}, {}, {}, input {}x{}, output {}x{}, margin {},{}\n",
               host.nodeLibrary.filename().string(), facts.glRenderer, facts.variant, input.width,
               input.height, sizing.output.width, sizing.output.height, sizing.margin.horizontal,
               sizing.margin.vertical);
    return host;
}

ClipFormat OutputFormat(const ClipReader& reader, cv::Size output) {
    ClipFormat format = reader.Format();
    format.size = output;
    return format;
}

}  // namespace

Pipeline::Pipeline(const std::string& command, const RunOptions& options, ClipReader& reader,
                   const NodeSizing& sizing, int64_t held, Observer observer)
    : options_(options),
      reader_(reader),
      dumps_(options.dumpDir.empty()
                 ? nullptr
                 : std::make_unique<Output>(options.dumpDir, Output::Kind::DumpFolder, false)),
      host_(Announce(options, sizing, dumps_.get(), results_.facts)),
      recording_(options, OutputFormat(reader, sizing.output), results_),
      progress_(options.progress, reader.ExpectedFrames()),
      observer_(std::move(observer)) {
    if (options.onDamage == OnDamage::Skip && !options.truth.empty()) {
        throw UsageError("--truth is compared frame by frame; expected no --damaged skip with it");
    }
    results_.facts.command = command;
    results_.facts.framesPerSecond = reader.Format().FramesPerSecond();
    host_.SetDumps(dumps_ != nullptr);
    node_ = host_.CreateNode(options.variant);
    const Negotiated sizes = node_->Negotiate(
        {static_cast<uint32_t>(sizing.output.width), static_cast<uint32_t>(sizing.output.height)},
        sizing.margin);
    const cv::Size input = results_.facts.inputSize;
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
    const StageTimer timer(results_, Stage::Read);
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

void Pipeline::Show(uint64_t requestId, const IPEICAGridTransform& grid,
                    const std::optional<Change<CameraResult>>& camera) {
    inFlight_.push_back({requestId, grid, camera, {}});
    InFlight& request = inFlight_.back();
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
    InFlight& request = inFlight_.front();
    const auto frame = static_cast<int64_t>(results_.frames.size());
    const int64_t number = Number(frame);
    uint32_t result = LumResultSuccess;
    {
        const StageTimer timer(results_, Stage::Node);
        result = request.result.get();
    }
    if (result != LumResultSuccess) {
        throw std::runtime_error(fmt::format("the {} node failed request {} (frame {} of the clip): {}",
                                             NameOf(node_->Kind()), request.id, number, ResultText(result)));
    }
    const RenderedFrame shown{number, request.grid, Input(frame), View(OutputBuffer(frame))};
    const WarpMap map(shown.grid, results_.facts.inputSize, results_.facts.outputSize);
    results_.frames.push_back({number, request.id, map.MarginUse(), request.camera});
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
    results_.damagedFrames = reader_.DamagedFrames();
    node_->Destroy();
    node_.reset();
    host_.CheckTornDown();
    if (dumps_) {
        RequireWholeDumps(*dumps_, Shown());
    }
    const DeskGlCounters gl = host_.Counters().gl.value_or(DeskGlCounters{});
    results_.counters = {gl.imports, 2 * results_.frames.size() - gl.imports, gl.liveImages, OpenFds()};
    results_.findings = host_.State().contract.List();
    recording_.Finish();
    const ExitCode code = Tell();
    if (dumps_) {
        dumps_->Publish();  // last: dumps of the same second may stand in the way
    }
    return code;
}

ExitCode Pipeline::Tell() const {
    if ((results_.motion || results_.truth) && options_.json != "-") {
        fmt::print("{}: ", NameOf(options_.variant));
        if (results_.motion) {
            fmt::print("motion {:.2f} -> {:.3f} px RMS, ", results_.motion->before, results_.motion->after);
        }
        if (results_.truth) {
            fmt::print("PSNR luma {:.2f} dB, chroma {:.2f} dB, ", results_.truth->luma.Psnr(),
                       results_.truth->chroma.Psnr());
        }
        const std::vector<double>& node = results_.milliseconds.at(Stage::Node);
        fmt::print("node call {:.1f} ms (p95 {:.1f}), {} findings\n", Percentile(node, 50),
                   Percentile(node, 95), results_.findings.size());
    }
    for (const FrameRange& range : results_.damagedFrames) {
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
