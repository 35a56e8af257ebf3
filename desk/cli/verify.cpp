#include <fmt/format.h>

#include <opencv2/imgproc.hpp>

#include "desk/cli/commands.h"
#include "desk/output/output.h"
#include "desk/output/say.h"
#include "desk/report/page.h"
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

int RunVerify(const VerifyOptions& options) {
    Verifier verifier(options);
    return RunReplay("verify", options, &verifier);
}

}  // namespace

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
