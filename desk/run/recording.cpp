#include "desk/run/recording.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>

#include "desk/base/usage_error.h"
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

std::unique_ptr<ClipWriter> WriterOf(const std::filesystem::path& clip, ClipFormat format, cv::Size size,
                                     bool overwrite) {
    format.size = size;
    return clip.empty() ? nullptr : std::make_unique<ClipWriter>(clip, format, overwrite);
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

Recording::Recording(const RunOptions& options, const ClipFormat& format, RunResults& results)
    : options_(options), results_(results), sideBySide_(SideBySide(format.size)), ideal_(format.size) {
    if (!options.report.empty()) {
        for (const char* name : ReportFiles) {
            RequireFree(options.report / name, options.overwrite);
        }
        report_.emplace(options.report);
    }
    if (!options.truth.empty()) {
        results.truth.emplace();
        truth_ = std::make_unique<ClipReader>(options.truth, options.frames);
        if (const cv::Size size = truth_->Format().size; size != format.size) {
            throw UsageError(fmt::format("{} has frames of {} x {}; expected those of the output, {} x {}",
                                         options.truth.string(), size.width, size.height, format.size.width,
                                         format.size.height));
        }
    }
    sideBySide_.luma.setTo(0);
    sideBySide_.chroma.setTo(cv::Scalar::all(128));
    before_.writer = WriterOf(options.before, format, format.size, options.overwrite);
    after_.writer = WriterOf(options.out, format, options.compare ? SideBySide(format.size) : format.size,
                             options.overwrite);
}

void Recording::Add(const Nv12& input, const Nv12& output) {
    const Nv12 before = Middle(input, output.luma.size());
    if (before_.writer) {
        before_.writer->Add(before);
    }
    if (after_.writer) {
        const StageTimer timer(results_, Stage::Write);
        if (options_.compare) {
            CopyInto(before, 0, sideBySide_);
            CopyInto(output, output.luma.cols + GapInCompare, sideBySide_);
        }
        after_.writer->Add(options_.compare ? sideBySide_ : output);
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
    if (truth_) {
        CompareWithTruth(output);
    }
}

void Recording::CompareWithTruth(const Nv12& output) {
    if (!truth_->Read(ideal_)) {
        throw UsageError(fmt::format("{} ends before the clip; expected a frame for each of the clip's",
                                     options_.truth.string()));
    }
    results_.truth->luma.Add(output.luma, ideal_.luma);
    results_.truth->chroma.Add(output.chroma, ideal_.chroma);
}

/// Frames within about a second of which the output moves more than the input by more than the measure is
/// off. The frames that a run left out are nobody's.
std::vector<FrameRange> Recording::WorseFrames() const {
    constexpr size_t Around = 15;   // frames on either side
    constexpr double Factor = 1.1;  // a picture that is shown anew is followed a little worse
    constexpr double Pixels = 0.1;  // and sharpness comes and goes
    std::vector<FrameRange> worse;
    for (size_t i = 0; i < results_.frames.size(); i++) {
        const size_t first = i - std::min(i, Around);
        const int64_t frame = results_.frames[i].frame;
        const bool isWorse = after_.motion.Rms(first, i + Around + 1) >
                             Factor * before_.motion.Rms(first, i + Around + 1) + Pixels;
        if (isWorse && !worse.empty() && worse.back().end == frame) {
            worse.back().end++;
        } else if (isWorse) {
            worse.push_back({frame, frame + 1});
        }
    }
    return worse;
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
    results_.worseFrames = WorseFrames();
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
    for (const auto step : {&ClipWriter::Complete, &ClipWriter::Publish}) {
        for (const Shown* side : {&before_, &after_}) {
            if (side->writer) {
                ((*side->writer).*step)();
            }
        }
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

void Recording::TellWorseFrames() const {
    constexpr size_t Most = 5;
    const std::vector<FrameRange>& worse = results_.worseFrames;
    std::string named;
    for (size_t i = 0; i < std::min(worse.size(), Most); i++) {
        named += fmt::format("{}{} to {}", i == 0 ? "" : ", ", worse[i].first, worse[i].end - 1);
    }
    if (!worse.empty()) {
        fmt::print(stderr, "dewarp-desk: the output moves more than the input in frames {}{}\n", named,
                   worse.size() > Most ? fmt::format(" and {} more such ranges", worse.size() - Most) : "");
    }
}

void Recording::Tell() const {
    if ((results_.motion || results_.truth) && options_.json != "-") {
        fmt::print("{}: ", NameOf(options_.variant));
        if (results_.motion && !std::isnan(results_.motion->after)) {
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
    TellWorseFrames();
    for (const std::string& finding : results_.findings) {
        fmt::print(stderr, "dewarp-desk: the node broke a rule: {}\n", finding);
    }
    for (const std::string& missed : results_.missedLimits) {
        fmt::print(stderr, "dewarp-desk: {}\n", missed);
    }
}

}  // namespace desk
