#include <fmt/format.h>

#include <map>
#include <opencv2/imgproc.hpp>

#include "desk/base/usage_error.h"
#include "desk/cli/commands.h"
#include "desk/dump/dump_checks.h"
#include "desk/output/output.h"
#include "desk/output/say.h"
#include "desk/report/page.h"
#include "desk/warp/reference_renderer.h"

namespace desk {
namespace {

constexpr double MinShareWithinLimit = 0.9999;
constexpr double MinPsnr = 50;  // dB

/// A clip and the grid dump that drives the node.
struct ReplayOptions : RunOptions {
    std::filesystem::path grids;
    std::optional<cv::Size> size;          ///< of the output, pixels; the clip's without
    std::optional<uint64_t> firstRequest;  ///< request id of the clip's first frame; empty: line n, frame n
    OnDamage onGap = OnDamage::Stop;       ///< of the dump
};

struct VerifyOptions : ReplayOptions {
    int limit = 2;  ///< levels
    std::filesystem::path heatMap;
};

/// Renders every frame on the CPU too and compares.
class Verifier : public Observer {
public:
    explicit Verifier(const VerifyOptions& options) : options_(options) {}

    void Add(const RenderedFrame& frame, RunResults& results) override {
        const cv::Size size = frame.output.luma.size();
        const WarpMap map(frame.grid, frame.input.luma.size(), size);
        if (!results.reference) {
            // The mesh lies in the same place in every frame; only what it shows changes.
            reference_ = Nv12(size);
            results.reference = {PlaneMeter(CoverageMask(map, size, 1), options_.limit),
                                 PlaneMeter(CoverageMask(map, size / 2, 2), options_.limit)};
        }
        const StageTimer timer(results, Stage::Reference);
        RenderReference(map, frame.input, reference_);
        const cv::Mat difference = results.reference->luma.Add(frame.output.luma, reference_.luma);
        results.reference->chroma.Add(frame.output.chroma, reference_.chroma);
        const double error = cv::norm(difference, cv::NORM_L2SQR);
        if (error >= worstError_) {
            worstError_ = error;
            worst_ = difference;
            results.worstFrame = frame.number;
        }
    }

    void Finish(RunResults& results) override {
        Judge("luma", results.reference->luma, results);
        Judge("chroma", results.reference->chroma, results);
        // Up to twice the limit the colours tell levels apart; what is beyond is white-hot alike.
        worst_.convertTo(results.heatMap, CV_8U, 255.0 / std::max(2 * options_.limit, 1));
        cv::applyColorMap(results.heatMap, results.heatMap, cv::COLORMAP_HOT);
        if (!options_.heatMap.empty()) {
            WriteWhole(options_.heatMap, Encoded(results.heatMap, ".png"), options_.overwrite);
        }
    }

private:
    void Judge(const char* plane, const PlaneMeter& meter, RunResults& results) const {
        const double share = meter.ShareWithinLimit();
        if (!options_.TakesStdout()) {
            Say(stdout, "{}: max {}, mean {:.4f}, PSNR {:.2f} dB, {:.4f} % within {}", plane, meter.Max(),
                meter.Mean(), meter.Psnr(), 100 * share, options_.limit);
        }
        if (!(share >= MinShareWithinLimit && meter.Psnr() >= MinPsnr)) {
            results.missedLimits.push_back(
                fmt::format("{} misses the limits: expected {} % of the samples within {} levels of the "
                            "reference and {} dB",
                            plane, 100 * MinShareWithinLimit, options_.limit, MinPsnr));
        }
    }

    const VerifyOptions& options_;
    Nv12 reference_{cv::Size()};
    cv::Mat worst_;
    double worstError_ = 0;
};

/// Enabled, by their request ids.
using Grids = std::map<uint64_t, IPEICAGridTransform>;

/// Mean distance between the mesh's first and last column or row, in input pixels: the input's size, when the
/// grid neither zooms nor folds.
cv::Point2d Span(const DumpLine& line) {
    const std::vector<cv::Point2d> points = MeshPoints(line, DumpKind::Grid);
    cv::Point2d span;
    for (auto row = points.begin(); row != points.end(); row += MeshColumns) {
        span.x += (row[MeshColumns - 1].x - row[0].x) / MeshRows;
    }
    for (auto column = points.begin(); column != points.begin() + MeshColumns; ++column) {
        span.y += (column[MeshVertices - MeshColumns].y - column[0].y) / MeshColumns;
    }
    return span;
}

/// Whether a line's grid may be for an input of this size: it says so, or it spans it more or less.
bool Fits(const DumpLine& line, cv::Size input) {
    // Warps zoom by a few per cent; more comes from a picture of another size.
    constexpr double MostZoom = 1.25;
    const cv::Point2d span = Span(line);
    const auto spans = [](double part, int whole) {
        return part * MostZoom >= whole && part <= whole * MostZoom;
    };
    const std::array<uint32_t, 2> size = {static_cast<uint32_t>(input.width),
                                          static_cast<uint32_t>(input.height)};
    return line.header == size || (spans(span.x, input.width) && spans(span.y, input.height));
}

/// The grids of a whole grid dump that is fit to drive a node; there is at least one. Throws UsageError when
/// the file is no grid dump, a line is malformed or has a bad value, a request id comes twice, or a grid
/// cannot have been made for an input of this size; and unless lines are found by their request ids, when
/// these do not rise by one from line to line.
Grids ReadGrids(const std::filesystem::path& file, cv::Size input, bool byRequest) {
    DumpReader reader(file);
    if (reader.Kind() != DumpKind::Grid) {
        throw UsageError(
            fmt::format("{}: expected a grid dump, got a {} dump", file.string(), NameOf(reader.Kind())));
    }
    Grids grids;
    std::vector<std::optional<uint64_t>> requests;
    while (const std::optional<DumpLine> line = reader.Next()) {
        reader.RequireCoordinates(*line);
        if (!Fits(*line, input)) {
            const cv::Point2d span = Span(*line);
            throw DumpError(file, {line->number, 0, "",
                                   fmt::format("expected a grid for an input of {} x {}, got one that spans "
                                               "{:.0f} x {:.0f} pixels",
                                               input.width, input.height, span.x, span.y)});
        }
        requests.emplace_back(line->requestId);
        grids.emplace(line->requestId, ToGrid(*line));
    }
    DumpFindings findings;
    CheckOrder(requests, findings);
    for (DumpFinding& finding : findings.first) {
        const bool isTwice = finding.kind == "repeated-request";
        if (isTwice || !byRequest) {
            finding.text += isTwice ? "; expected every request id once"
                                    : "; expected the request id of the clip's first frame with "
                                      "--first-request, or --gaps skip to leave out frames without a line";
            throw DumpError(file, finding);
        }
    }
    return grids;
}

/// The grid of a frame, counted from 0 in the clip; the end where gaps are skipped and it has none. Throws
/// UsageError naming the frame otherwise.
Grids::const_iterator GridOf(const Grids& grids, int64_t frame, const ReplayOptions& options) {
    // Unless frames are tied by request ids, these rise by one from line to line.
    const uint64_t first = options.firstRequest.value_or(grids.begin()->first);
    const uint64_t request = static_cast<uint64_t>(frame) + first;
    const auto grid = grids.find(request);
    if (grid != grids.end() || options.onGap == OnDamage::Skip) {
        return grid;
    }
    throw UsageError(
        options.firstRequest
            ? fmt::format("the grid dump has no line of request {}, which frame {} of the clip needs",
                          request, frame)
            : fmt::format("the grid dump has {} lines and none for frame {} of the clip; --frames "
                          "names the frames to take",
                          grids.size(), frame));
}

/// Takes the clip's frames, as they stand, through the node with the grids of the dump. Returns the program's
/// exit code. Throws UsageError for a dump that cannot drive a node with this clip, naming a frame that has
/// no grid; as Pipeline does.
int Run(const std::string& command, const ReplayOptions& options, Observer* observer) {
    CatchInterrupts();
    if (options.onGap == OnDamage::Skip && !options.truth.empty()) {
        throw UsageError("--truth is compared frame by frame; expected no --gaps skip with it");
    }
    ClipReader reader = options.Open(options.clip);
    const cv::Size clip = reader.Format().size;
    const Grids grids =
        ReadGrids(options.grids, clip, options.firstRequest || options.onGap == OnDamage::Skip);
    const cv::Size output = options.size.value_or(clip);
    Pipeline pipeline(command, options, reader, {output, MarginFor(clip, output)}, 0, observer);
    bool isShown = false;
    while (pipeline.Read()) {
        if (const auto grid = GridOf(grids, pipeline.Next(), options); grid != grids.end()) {
            pipeline.Show(grid->first, grid->second);
            isShown = true;
        } else {
            pipeline.LeaveOut();
        }
    }
    if (!isShown && !Interrupted()) {
        throw UsageError(fmt::format("{} has no line for any frame of {}; its requests are {} to {}",
                                     options.grids.string(), options.clip.string(), grids.begin()->first,
                                     grids.rbegin()->first));
    }
    return pipeline.Finish();
}

int RunReplay(const ReplayOptions& options) {
    return Run("replay", options, nullptr);
}

int RunVerify(const VerifyOptions& options) {
    Verifier verifier(options);
    return Run("verify", options, &verifier);
}

/// Adds what both commands need.
void AddReplayOptions(CLI::App& command, ReplayOptions& options) {
    command.add_option("CLIP", options.clip, "the node's input frames")->required()->group(Inputs);
    command.add_option("--grids", options.grids, "grid dump that drives the node")->required()->group(Inputs);
    command.add_option("--first-request", options.firstRequest,
                       "request id of the clip's first frame; without it line n belongs to frame n");
    AddStopOrSkip(command, "--gaps", "what a frame without a line in the grid dump does to the run",
                  options.onGap);
    AddSize(command, options.size);
    AddNodeOptions(command, options);
}

}  // namespace

void AddReplay(CLI::App& app, int& status) {
    auto [command, options] = AddCommand<ReplayOptions>(
        app, "replay", "Drives the node with a device's grid dump.",
        "dewarp-desk replay input.mkv --grids Warp2_Grid_20261115_171203.txt --size 1920x1080 -o out.mp4",
        status, RunReplay);
    AddReplayOptions(command, options);
    AddRecordingOptions(command, options);
}

void AddVerify(CLI::App& app, int& status) {
    auto [command, options] = AddCommand<VerifyOptions>(
        app, "verify", "Compares the node's frames with a reference made on the CPU.",
        "dewarp-desk verify input.mkv --grids grids.txt --size 1920x1080 --limit 2", status, RunVerify);
    AddReplayOptions(command, options);
    command.add_option("--limit", options.limit, "levels that 99.99 % of the samples may be off [2]")
        ->check(CLI::Range(0, 255));
    AddOutput(command, "--heat-map", MakesFile, options.heatMap, "PNG of the worst frame's luma error");
}

}  // namespace desk
