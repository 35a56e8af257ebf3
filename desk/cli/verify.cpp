#include <fmt/format.h>

#include <memory>
#include <opencv2/imgproc.hpp>
#include <optional>

#include "desk/cli/commands.h"
#include "desk/output/output.h"
#include "desk/report/pictures.h"
#include "desk/warp/reference_renderer.h"

namespace desk {
namespace {

constexpr double MinShareWithinLimit = 0.9999;
constexpr double MinPsnr = 50;  // dB

struct VerifyOptions : ReplayOptions {
    int limit = 2;  ///< levels
    std::filesystem::path heatMap;
};

/// Renders every frame on the CPU too and compares.
class Verifier {
public:
    Verifier(const VerifyOptions& options, RunResults& results) : options_(options), results_(results) {}

    void Add(const RenderedFrame& frame) {
        const cv::Size size = frame.output.luma.size();
        const WarpMap map(frame.grid, frame.input.luma.size(), size);
        if (!results_.reference) {
            // The mesh lies in the same place in every frame; only what it shows changes.
            reference_ = Nv12(size);
            results_.reference = {PlaneMeter(CoverageMask(map, size, 1), options_.limit),
                                  PlaneMeter(CoverageMask(map, size / 2, 2), options_.limit)};
        }
        const StageTimer timer(results_, Stage::Reference);
        RenderReference(map, frame.input, reference_);
        const cv::Mat difference = results_.reference->luma.Add(frame.output.luma, reference_.luma);
        results_.reference->chroma.Add(frame.output.chroma, reference_.chroma);
        const double error = cv::norm(difference, cv::NORM_L2SQR);
        if (error >= worstError_) {
            worstError_ = error;
            worst_ = difference;
            results_.worstFrame = frame.number;
        }
    }

    void Finish() {
        if (!results_.reference) {
            return;  // interrupted before the first frame
        }
        Judge("luma", results_.reference->luma);
        Judge("chroma", results_.reference->chroma);
        // Up to twice the limit the colours tell levels apart; what is beyond is white-hot alike.
        worst_.convertTo(results_.heatMap, CV_8U, 255.0 / std::max(2 * options_.limit, 1));
        cv::applyColorMap(results_.heatMap, results_.heatMap, cv::COLORMAP_HOT);
        if (!options_.heatMap.empty()) {
            WriteWhole(options_.heatMap, Encoded(results_.heatMap, ".png"), options_.overwrite);
        }
    }

private:
    void Judge(const char* plane, const PlaneMeter& meter) {
        const double share = meter.ShareWithinLimit();
        if (options_.json != "-") {
            fmt::print("{}: max {}, mean {:.4f}, PSNR {:.2f} dB, {:.4f} % within {}\n", plane, meter.Max(),
                       meter.Mean(), meter.Psnr(), 100 * share, options_.limit);
        }
        if (!(share >= MinShareWithinLimit && meter.Psnr() >= MinPsnr)) {
            results_.missedLimits.push_back(
                fmt::format("{} misses the limits: expected {} % of the samples within {} levels of the "
                            "reference and {} dB",
                            plane, 100 * MinShareWithinLimit, options_.limit, MinPsnr));
        }
    }

    const VerifyOptions& options_;
    RunResults& results_;
    Nv12 reference_{cv::Size()};
    cv::Mat worst_;
    double worstError_ = 0;
};

int RunVerify(const VerifyOptions& options) {
    std::optional<Verifier> verifier;
    Replay replay("verify", options, [&verifier](const RenderedFrame& frame) { verifier->Add(frame); });
    verifier.emplace(options, replay.Frames().Results());
    replay.Run();
    verifier->Finish();
    return replay.Frames().Finish();
}

}  // namespace

void AddVerify(CLI::App& app, ChosenCommand& chosen) {
    CLI::App& command =
        AddCommand(app, "verify", "Compares the node's frames with a reference made on the CPU.",
                   "dewarp-desk verify input.mkv --grids grids.txt --size 1920x1080 --limit 2");
    const auto options = std::make_shared<VerifyOptions>();
    AddReplayOptions(command, *options);
    command.add_option("--limit", options->limit, "levels that 99.99 % of the samples may be off [2]")
        ->check(CLI::Range(0, 255));
    AddOutput(command, "--heat-map", Makes::File, options->heatMap, "PNG of the worst frame's luma error");
    command.callback([options, &chosen] { chosen = [options] { return RunVerify(*options); }; });
}

}  // namespace desk
