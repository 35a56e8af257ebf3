#include "desk/run/pipeline.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>

#include "desk/base/usage_error.h"
#include "desk/output/say.h"
#include "desk/run/memory.h"
#include "desk/run/node_library.h"
#include "desk/warp/warp_map.h"

namespace desk {
namespace {

constexpr size_t SpareBuffers = 4;  // in rotation beside those that are held

Nv12 View(GrallocBuffer& buffer) {
    const cv::Size size(static_cast<int>(buffer.Width()), static_cast<int>(buffer.Height()));
    return {size, buffer.Luma(), buffer.Chroma(), buffer.Stride()};
}

/// The node does not say when it could not write one of its three dump files, so their lines are counted.
void RequireWholeDumps(const Output& dumps, size_t frames) {
    const std::filesystem::directory_iterator files(dumps.Work());
    const auto whole = std::count_if(begin(files), end(files), [frames](const auto& file) {
        std::ifstream in(file.path(), std::ios::binary);
        return static_cast<size_t>(std::count(std::istreambuf_iterator<char>(in), {}, '\n')) == frames;
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

/// Before anything is made.
const RunOptions& Checked(const RunOptions& options, cv::Size input, size_t held) {
    if (options.onDamage == OnDamage::Skip && !options.truth.empty()) {
        throw UsageError("--truth is compared frame by frame; expected no --damaged skip with it");
    }
    if (HeldFramesThatFit(input, options.inFlight) < static_cast<int64_t>(held)) {
        throw std::runtime_error(
            fmt::format("the memory is short for {} frames of {} x {} beside those of the "
                        "decoder and the encoder; expected room for them",
                        held + 1, input.width, input.height));
    }
    return options;
}

}  // namespace

Pipeline::Pipeline(const std::string& command, const RunOptions& options, ClipReader& reader,
                   const NodeSizing& sizing, size_t held, Observer* observer)
    : options_(Checked(options, InputFor(sizing.output, sizing.margin), held)),
      reader_(reader),
      dumps_(options.dumpDir.empty()
                 ? nullptr
                 : std::make_unique<Output>(options.dumpDir, Output::Kind::DumpFolder, false)),
      library_(NodeLibrary(options.library)),
      host_(OpenHost(library_, dumps_ == nullptr ? "" : dumps_->Work(), &log_, options.luxBits)),
      progress_(options.progress, reader.ExpectedFrames()),
      observer_(observer) {
    const cv::Size input = InputFor(sizing.output, sizing.margin);
    results_.facts = {command,
                      options.clip.string(),
                      options.out.string(),
                      options.credit,
                      NameOf(options.variant),
                      "",
                      library_.string(),
                      input,
                      sizing.output,
                      av_q2d(reader.Format().rate)};
    host_->SetDumps(dumps_ != nullptr);
    CreateNode(sizing.margin);
    recording_.emplace(options, results_, reader);
    const Negotiated sizes = node_->Negotiate(
        {static_cast<uint32_t>(sizing.output.width), static_cast<uint32_t>(sizing.output.height)},
        sizing.margin);
    if (cv::Size(static_cast<int>(sizes.input.width), static_cast<int>(sizes.input.height)) != input) {
        throw std::runtime_error(fmt::format("the node asks for an input of {} x {}; expected {} x {}",
                                             sizes.input.width, sizes.input.height, input.width,
                                             input.height));
    }
    const size_t spare = SpareBuffers + options.inFlight - 1;
    std::generate_n(std::back_inserter(inputs_), held + spare, [this] { return node_->AllocateInput(); });
    std::generate_n(std::back_inserter(outputs_), spare, [this] { return node_->AllocateOutput(); });
    if (options.inFlight > 1) {
        driver_ = std::make_unique<PipelinedDriver>(*node_, options.inFlight, options.inFlight);
    }
}

void Pipeline::CreateNode(Margin margin) {
    RunFacts& facts = results_.facts;
    const auto gl = [this] { return host_->Counters().gl.value_or(DeskGlCounters{}); };
    const auto showLog = [this] {
        std::cerr << early_.str();
        log_.rdbuf(std::cerr.rdbuf());
    };
    try {
        node_ = host_->CreateNode(options_.variant);
    } catch (const NodeError& error) {
        showLog();
        if (gl().maxTextureSize == 0) {
            throw std::runtime_error(fmt::format(
                "the machine's EGL and OpenGL ES give no context; expected a driver such as Mesa's ({})",
                error.what()));
        }
        throw;
    }
    facts.glRenderer = gl().renderer;
    const cv::Size& input = facts.inputSize;
    Say(stderr, "dewarp-desk: {}, {}, {}, input {}x{}, output {}x{}, margin {},{}", facts.library,
        facts.glRenderer, facts.variant, input.width, input.height, facts.outputSize.width,
        facts.outputSize.height, margin.horizontal, margin.vertical);
    showLog();
    const int most = gl().maxTextureSize;
    if (most != 0 && std::max(input.width, input.height) > most) {
        throw UsageError(
            fmt::format("an input of {} x {} is too large for {}; expected at most {} pixels each way",
                        input.width, input.height, facts.glRenderer, most));
    }
}

bool Pipeline::Read() {
    if (Interrupted()) {
        return false;
    }
    Nv12 picture = View(NextInput());
    const StageTimer timer(results_, Stage::Read);
    const bool isRead = reader_.Read(picture);
    if (isRead) {
        frames_.push_back({reader_.Frame(), reader_.Time(), NextInput()});
    }
    return isRead;
}

void Pipeline::LeaveOut() {
    Extend(results_.gridlessFrames, frames_.back().number);
    frames_.pop_back();
}

Nv12 Pipeline::Newest() {
    return View(frames_.back().input);
}

void Pipeline::Show(uint64_t requestId, const IPEICAGridTransform& grid,
                    const std::optional<Change<CameraResult>>& camera) {
    Frame& frame = frames_[inFlight_];
    frame.id = requestId;
    frame.grid = grid;
    frame.camera = camera;
    const NodeFrame request{requestId, &frame.grid, &frame.input, &OutputOf(inFlight_)};
    inFlight_++;
    frame.result = driver_ ? driver_->Submit(request) : std::async(std::launch::deferred, [this, request] {
        return node_->Process(request.requestId, request.grid, *request.input, *request.output);
    });
    if (inFlight_ == options_.inFlight) {
        Collect();
    }
}

void Pipeline::Collect() {
    Frame& frame = frames_.front();
    uint32_t result = LumResultSuccess;
    {
        const StageTimer timer(results_, Stage::Node);
        result = frame.result.get();
    }
    if (result != LumResultSuccess) {
        throw std::runtime_error(fmt::format("the {} node failed request {} (frame {} of the clip): {}",
                                             NameOf(node_->Kind()), frame.id, frame.number,
                                             ResultText(result)));
    }
    const RenderedFrame shown{frame.number, frame.grid, View(frame.input), View(OutputOf(0))};
    const WarpMap map(shown.grid, results_.facts.inputSize, results_.facts.outputSize);
    results_.frames.push_back({frame.number, frame.id, map.MarginUse(), frame.camera});
    recording_->Add(shown.input, shown.output, frame.time);
    if (observer_ != nullptr) {
        observer_->Add(shown, results_);
    }
    progress_.Step(static_cast<int64_t>(results_.frames.size()));
    frames_.pop_front();
    inFlight_--;
}

ExitCode Pipeline::Finish() {
    while (inFlight_ > 0) {
        Collect();
    }
    driver_.reset();
    const size_t shown = results_.frames.size();
    if (!progress_.End(static_cast<int64_t>(shown))) {
        return WasInterrupted;
    }
    if (observer_ != nullptr) {
        observer_->Finish(results_);
    }
    results_.damagedFrames = reader_.DamagedFrames();
    node_->Destroy();
    node_.reset();
    host_->CheckTornDown();
    if (dumps_) {
        RequireWholeDumps(*dumps_, shown);
    }
    const DeskGlCounters gl = host_->Counters().gl.value_or(DeskGlCounters{});
    results_.counters = {gl.imports, 2 * shown - gl.imports, gl.liveImages, OpenFds()};
    results_.findings = host_->contract.List();
    recording_->Finish();
    if (dumps_) {
        dumps_->Publish();  // last: dumps of the same second may stand in the way
    }
    if (Interrupted()) {
        Say(stderr, "dewarp-desk: interrupted after {} frames{}", shown,
            options_.out.empty() ? "" : "; " + options_.out.string() + " holds them");
        return WasInterrupted;
    }
    return results_.findings.empty() && results_.missedLimits.empty() ? Done : CheckFailed;
}

}  // namespace desk
