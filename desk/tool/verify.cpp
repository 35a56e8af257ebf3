#include <fmt/format.h>

#include <cmath>
#include <memory>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <stdexcept>

#include "desk/tool/commands.h"
#include "desk/tool/errors.h"
#include "desk/tool/output_place.h"
#include "desk/tool/reference_renderer.h"
#include "desk/tool/replay.h"
#include "desk/tool/run_output.h"

namespace desk {
namespace {

constexpr double MinShareWithinLimit = 0.9999;
constexpr double MinPsnr = 50;  // dB

struct VerifyOptions {
    ReplayOptions replay;
    int limit = 2;  ///< levels
    std::filesystem::path heatMap;
};

/// Gathers how far one plane lies from its reference.
class PlaneMeter {
public:
    /// `mask` tells which samples count.
    PlaneMeter(cv::Mat mask, int limit) : mask_(std::move(mask)), limit_(limit) {}

    /// Returns the difference, 0 where no sample counts.
    cv::Mat Add(const cv::Mat& plane, const cv::Mat& reference) {
        cv::Mat difference;
        cv::absdiff(plane, reference, difference);
        difference.setTo(cv::Scalar::all(0), mask_ == 0);
        const cv::Mat levels = difference.reshape(1);
        double max = 0;
        cv::minMaxIdx(levels, nullptr, &max);
        max_ = std::max(max_, static_cast<int>(max));
        sum_ += cv::sum(levels)[0];
        squares_ += cv::norm(levels, cv::NORM_L2SQR);
        beyond_ += cv::countNonZero(levels > limit_);
        samples_ += static_cast<double>(cv::countNonZero(mask_)) * plane.channels();
        return difference;
    }

    PlaneError Result() const {
        constexpr double Peak = 255;
        return {max_, sum_ / samples_, 10 * std::log10(Peak * Peak * samples_ / squares_),
                1 - beyond_ / samples_};
    }

private:
    cv::Mat mask_;
    int limit_;
    int max_ = 0;
    double sum_ = 0;
    double squares_ = 0;
    double beyond_ = 0;
    double samples_ = 0;
};

/// Renders every frame on the CPU too and compares.
class Verifier {
public:
    Verifier(int limit, RunResults& results) : limit_(limit), results_(results) {}

    void Add(const RenderedFrame& frame) {
        const cv::Size size = frame.output.luma.size();
        const WarpMap map(frame.grid, frame.input.luma.size(), size);
        if (!reference_) {
            // The mesh lies in the same place in every frame; only what it shows changes.
            reference_ = std::make_unique<Nv12>(size);
            luma_ = std::make_unique<PlaneMeter>(CoverageMask(map, size, 1), limit_);
            chroma_ = std::make_unique<PlaneMeter>(CoverageMask(map, size / 2, 2), limit_);
        }
        const StageTimer timer(results_, "reference");
        RenderReference(map, frame.input, *reference_);
        const cv::Mat difference = luma_->Add(frame.output.luma, reference_->luma);
        chroma_->Add(frame.output.chroma, reference_->chroma);
        const double error = cv::norm(difference, cv::NORM_L2SQR);
        if (error >= worstError_) {
            worstError_ = error;
            worst_ = difference;
            results_.worstFrame = frame.frame;
        }
    }

    void Finish() {
        if (!reference_) {
            return;  // interrupted before the first frame
        }
        results_.planes = {{"luma", luma_->Result()}, {"chroma", chroma_->Result()}};
        for (const auto& [plane, error] : results_.planes) {
            results_.psnr[plane + " against the reference"] = error.psnr;
        }
        // Up to twice the limit the colours tell levels apart; what is beyond is white-hot alike.
        cv::Mat scaled;
        worst_.convertTo(scaled, CV_8U, 255.0 / std::max(2 * limit_, 1));
        cv::applyColorMap(scaled, results_.heatMap, cv::COLORMAP_HOT);
    }

private:
    int limit_;
    RunResults& results_;
    std::unique_ptr<Nv12> reference_;
    std::unique_ptr<PlaneMeter> luma_;
    std::unique_ptr<PlaneMeter> chroma_;
    cv::Mat worst_;
    double worstError_ = 0;
};

void WriteHeatMap(const VerifyOptions& options, const RunResults& results) {
    if (options.heatMap.empty() || results.heatMap.empty()) {
        return;
    }
    std::vector<uint8_t> png;
    cv::imencode(".png", results.heatMap, png);
    WriteWhole(options.heatMap, {png.begin(), png.end()}, options.replay.common.overwrite);
}

/// Prints the table and tells whether all planes keep the limits.
bool Judge(const VerifyOptions& options, const RunResults& results) {
    bool isGood = true;
    for (const auto& [plane, error] : results.planes) {
        if (options.replay.common.json != "-") {
            fmt::print("{}: max {}, mean {:.4f}, PSNR {:.2f} dB, {:.4f} % within {}\n", plane, error.max,
                       error.mean, error.psnr, 100 * error.shareWithinLimit, options.limit);
        }
        if (!(error.shareWithinLimit >= MinShareWithinLimit && error.psnr >= MinPsnr)) {
            isGood = false;
            fmt::print(
                stderr,
                "dewarp-desk: {} misses the limits: expected {} % of the samples within {} levels of the "
                "reference and {} dB\n",
                plane, 100 * MinShareWithinLimit, options.limit, MinPsnr);
        }
    }
    fmt::print(stderr, "worst frame: {}\n", results.worstFrame);
    return isGood;
}

int RunVerify(const VerifyOptions& options) {
    RunResults results;
    results.command = "verify";
    if (!options.heatMap.empty()) {
        RequireFree(options.heatMap, options.replay.common.overwrite);
    }
    std::unique_ptr<RunOutput> output;
    Verifier verifier(options.limit, results);
    ReplayGrids(options.replay, results,
                {[&](const ClipFormat& format) {
                     output = std::make_unique<RunOutput>(options.replay.common, "", format, results);
                 },
                 [&](const RenderedFrame& frame) {
                     output->Add(frame.input, frame.output);
                     verifier.Add(frame);
                 }});
    verifier.Finish();
    output->Finish();
    WriteHeatMap(options, results);
    const bool isGood = Judge(options, results);
    const int code = FinishedCode(results);
    return code == Done && !isGood ? CheckFailed : code;
}

}  // namespace

void AddVerify(CLI::App& app, ChosenCommand& chosen) {
    CLI::App& command =
        AddCommand(app, "verify", "Compares the node's frames with a reference made on the CPU.",
                   "dewarp-desk verify input.mkv --grids grids.txt --size 1920x1080 --limit 2");
    auto options = std::make_shared<VerifyOptions>();
    AddReplayOptions(command, options->replay);
    command.add_option("--limit", options->limit, "levels that 99.99 % of the samples may be off [2]")
        ->check(CLI::Range(0, 255));
    command.add_option("--heat-map", options->heatMap, "PNG of the worst frame's luma error");
    command.callback([options, &chosen] { chosen = [options] { return RunVerify(*options); }; });
}

}  // namespace desk
