#include "desk/run/recording.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>

#include "desk/base/usage_error.h"
#include "desk/output/say.h"
#include "desk/report/page.h"

namespace desk {
namespace {

constexpr int GapInCompare = 4;  // pixels between the two pictures

// Enough for shake to blur; over more, a camera that is moved on purpose would blur as well.
constexpr int PicturesInMean = 15;

cv::Size SideBySide(cv::Size size) {
    return {2 * size.width + GapInCompare, size.height};
}

void CopyInto(const Nv12& picture, int column, Nv12& wide) {
    picture.luma.copyTo(wide.luma(cv::Rect({column, 0}, picture.luma.size())));
    picture.chroma.copyTo(wide.chroma(cv::Rect({column / 2, 0}, picture.chroma.size())));
}

}  // namespace

void Recording::Shown::AddToMean(const Nv12& picture) {
    if (pictures++ == 0) {
        lumaMean = cv::Mat::zeros(picture.luma.size(), CV_32FC1);
        chromaMean = cv::Mat::zeros(picture.chroma.size(), CV_32FC2);
    }
    const double share = 1.0 / std::min(pictures, PicturesInMean);
    cv::accumulateWeighted(picture.luma, lumaMean, share);
    cv::accumulateWeighted(picture.chroma, chromaMean, share);
}

cv::Mat Recording::Shown::Mean() const {
    Nv12 mean(lumaMean.size());
    lumaMean.convertTo(mean.luma, CV_8U);
    chromaMean.convertTo(mean.chroma, CV_8U);
    return ReadNv12(mean);
}

Recording::Recording(const RunOptions& options, RunResults& results, ClipReader& reader)
    : options_(options),
      results_(results),
      reader_(reader),
      sideBySide_(SideBySide(results.facts.outputSize)),
      ideal_(results.facts.outputSize) {
    const cv::Size output = results.facts.outputSize;
    if (!options.report.empty()) {
        report_.emplace(options.report);
    }
    if (!options.truth.empty()) {
        results.truth.emplace();
        truth_.emplace(options.truth, options.frames, OnDamage::Stop, options.orientation);
        if (const cv::Size size = truth_->Format().size; size != output) {
            throw UsageError(fmt::format("{} has frames of {} x {}; expected those of the output, {} x {}",
                                         options.truth.string(), size.width, size.height, output.width,
                                         output.height));
        }
    }
    sideBySide_.luma.setTo(0);
    sideBySide_.chroma.setTo(cv::Scalar::all(128));
    reader.TellLosses(results.facts.inputSize);
    const std::pair<Content, const std::filesystem::path&> clips[] = {
        {Before, options.before}, {After, options.out}, {Both, options.compare}};
    for (const auto& [shows, clip] : clips) {
        ClipFormat format = reader.Format();
        format.size = shows == Both ? SideBySide(output) : output;
        if (!clip.empty()) {
            clips_.try_emplace(shows, clip, format, options.overwrite, options.encoding, &reader);
        }
    }
}

void Recording::Add(const Nv12& input, const Nv12& output, const FrameTime& time) {
    const Nv12 before = Middle(input, output.luma.size());
    if (!options_.compare.empty()) {
        CopyInto(before, 0, sideBySide_);
        CopyInto(output, output.luma.cols + GapInCompare, sideBySide_);
    }
    CopyOthers();
    if (!clips_.empty()) {
        const StageTimer timer(results_, Stage::Write);
        for (auto& [shows, clip] : clips_) {
            clip.Add(shows == Before ? before : shows == After ? output : sideBySide_, time);
        }
    }
    {
        const StageTimer timer(results_, Stage::Measure);
        for (const auto& [side, picture] : {std::pair(&before_, before), std::pair(&after_, output)}) {
            side->motion.Add(picture.luma);
            if (report_) {
                side->AddToMean(picture);
            }
        }
    }
    if (truth_ && !truth_->Read(ideal_)) {
        throw UsageError(fmt::format("{} ends before the clip; expected a frame for each of the clip's",
                                     options_.truth.string()));
    }
    if (truth_) {
        results_.truth->luma.Add(output.luma, ideal_.luma);
        results_.truth->chroma.Add(output.chroma, ideal_.chroma);
    }
}

void Recording::CopyOthers() {
    for (const auto& packet : reader_.TakeOthers()) {
        for (auto& [shows, clip] : clips_) {
            clip.Take(*packet);
        }
    }
}

/// Frames within about a second of which the output moves more than the input by more than the measure is
/// off. The frames that a run left out are nobody's.
void Recording::FindWorseFrames() {
    constexpr size_t Around = 15;   // frames on either side
    constexpr double Factor = 1.1;  // a picture that is shown anew is followed a little worse
    constexpr double Pixels = 0.1;  // and sharpness comes and goes
    for (size_t i = 0; i < results_.frames.size(); i++) {
        const size_t first = i - std::min(i, Around);
        if (after_.motion.Rms(first, i + Around + 1) >
            Factor * before_.motion.Rms(first, i + Around + 1) + Pixels) {
            Extend(results_.worseFrames, results_.frames[i].frame);
        }
    }
}

void Recording::AddMotion() {
    const double before = before_.motion.Rms();
    const double after = after_.motion.Rms();
    results_.motion = {before, after};
    if (options_.maxMotion && !(after <= *options_.maxMotion)) {
        results_.missedLimits.push_back(
            fmt::format("the output moves by {:.3f} pixels RMS between frames, the limit is {}", after,
                        *options_.maxMotion));
    }
    FindWorseFrames();
    if (!report_) {
        return;
    }
    const auto caption = [](const char* when, double motion) {
        return fmt::format("{}: the last frames laid over one another, motion {:.2f} px RMS", when, motion);
    };
    results_.beforeAfter = BeforeAfter(before_.Mean(), caption("before", before), after_.Mean(),
                                       caption("after", after), options_.credit);
}

void Recording::Finish() {
    // What is there is replaced when all that takes its place is complete.
    CopyOthers();
    for (auto& [shows, clip] : clips_) {
        clip.Complete(Interrupted());
    }
    for (auto& [shows, clip] : clips_) {
        clip.Publish();
    }
    AddMotion();
    if (options_.minPsnr && !(results_.truth->luma.Psnr() >= *options_.minPsnr)) {
        results_.missedLimits.push_back(
            fmt::format("luma PSNR against the truth is {:.2f} dB, the limit is {}",
                        results_.truth->luma.Psnr(), *options_.minPsnr));
    }
    WriteJson(ToJson(results_), options_.json, options_.overwrite);
    if (!options_.report.empty()) {
        WriteReport(results_, options_.report, options_.overwrite);
    }
    Tell();
}

void Recording::Tell() const {
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start_;
    const std::vector<double>& node = results_.milliseconds.at(Stage::Node);
    std::string text = fmt::format("{}: {} frames in {:.1f} s, ", NameOf(options_.variant),
                                   results_.frames.size(), taken.count());
    if (results_.motion && !std::isnan(results_.motion->after)) {
        text +=
            fmt::format("motion {:.2f} -> {:.3f} px RMS, ", results_.motion->before, results_.motion->after);
    }
    if (results_.truth) {
        text += fmt::format("PSNR luma {:.2f} dB, chroma {:.2f} dB, ", results_.truth->luma.Psnr(),
                            results_.truth->chroma.Psnr());
    }
    text += fmt::format("node call {:.1f} ms (p95 {:.1f}), {} findings", Percentile(node, 50),
                        Percentile(node, 95), results_.findings.size());
    for (const auto& made : {options_.out, options_.before, options_.compare, options_.json, options_.report,
                             options_.dumpDir}) {
        text += made.empty() || made == "-" ? "" : ", " + made.string();
    }
    // Where stdout is for data, nothing else comes between.
    Say(options_.TakesStdout() ? stderr : stdout, "{}", text);
    for (const FrameRange& range : results_.damagedFrames) {
        Say(stderr, "dewarp-desk: {} is damaged: skipped frames {} to {}", options_.clip.string(),
            range.first, range.end - 1);
    }
    for (const FrameRange& range : results_.gridlessFrames) {
        Say(stderr, "dewarp-desk: {} has no line in the grid dump for frames {} to {}",
            options_.clip.string(), range.first, range.end - 1);
    }
    constexpr size_t Most = 5;
    std::vector<std::string> worse;
    for (const FrameRange& range : results_.worseFrames) {
        worse.push_back(fmt::format("{} to {}", range.first, range.end - 1));
    }
    if (worse.size() > Most) {
        worse[Most - 1] += fmt::format(" and {} more such ranges", worse.size() - Most);
        worse.resize(Most);
    }
    if (!worse.empty()) {
        Say(stderr, "dewarp-desk: the output moves more than the input in frames {}", fmt::join(worse, ", "));
    }
    for (const std::string& finding : results_.findings) {
        Say(stderr, "dewarp-desk: the node broke a rule: {}", finding);
    }
    for (const std::string& missed : results_.missedLimits) {
        Say(stderr, "dewarp-desk: {}", missed);
    }
}

}  // namespace desk
