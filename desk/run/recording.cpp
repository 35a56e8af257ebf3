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

Recording::Recording(const RunOptions& options, const ClipFormat& format, RunResults& results,
                     ClipReader& reader)
    : options_(options),
      results_(results),
      reader_(reader),
      sideBySide_(SideBySide(format.size)),
      ideal_(format.size) {
    if (!options.report.empty()) {
        report_.emplace(options.report);
    }
    if (!options.truth.empty()) {
        results.truth.emplace();
        truth_ =
            std::make_unique<ClipReader>(options.truth, options.frames, OnDamage::Stop, options.orientation);
        if (const cv::Size size = truth_->Format().size; size != format.size) {
            throw UsageError(fmt::format("{} has frames of {} x {}; expected those of the output, {} x {}",
                                         options.truth.string(), size.width, size.height, format.size.width,
                                         format.size.height));
        }
    }
    sideBySide_.luma.setTo(0);
    sideBySide_.chroma.setTo(cv::Scalar::all(128));
    const std::filesystem::path* const clips[] = {&options.before, &options.out, &options.compare};
    for (const size_t shows : {Before, After, Both}) {
        if (const std::filesystem::path& clip = *clips[shows]; !clip.empty()) {
            ClipFormat own = format;
            own.size = shows == Both ? SideBySide(format.size) : format.size;
            clips_.push_back(
                {shows, clip,
                 std::make_unique<ClipWriter>(clip, own, options.overwrite, options.encoding, &reader)});
        }
    }
}

void Recording::TellLosses() {
    for (const Clip& clip : clips_) {
        if (const std::string losses = clip.writer->Losses(); !losses.empty()) {
            Say(stderr, "dewarp-desk: {} does not hold {}", clip.place.string(), losses);
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
        const Nv12* const pictures[] = {&before, &output, &sideBySide_};
        for (const Clip& clip : clips_) {
            clip.writer->Add(*pictures[clip.shows], time);
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
    if (truth_) {
        CompareWithTruth(output);
    }
}

void Recording::CopyOthers() {
    for (const auto& packet : reader_.TakeOthers()) {
        for (const Clip& clip : clips_) {
            clip.writer->Take(*packet);
        }
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
    CopyOthers();
    for (const Clip& clip : clips_) {
        clip.writer->Complete(Interrupted());
    }
    for (const Clip& clip : clips_) {
        clip.writer->Publish();
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
        Say(stderr, "dewarp-desk: the output moves more than the input in frames {}{}", named,
            worse.size() > Most ? fmt::format(" and {} more such ranges", worse.size() - Most) : "");
    }
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
    const auto tell = [](const std::filesystem::path& file, const char* what,
                         const std::vector<FrameRange>& ranges) {
        for (const FrameRange& range : ranges) {
            Say(stderr, "dewarp-desk: {} {} frames {} to {}", file.string(), what, range.first,
                range.end - 1);
        }
    };
    tell(options_.clip, "is damaged: skipped", results_.damagedFrames);
    tell(options_.clip, "has no line in the grid dump for", results_.gridlessFrames);
    TellWorseFrames();
    for (const std::string& finding : results_.findings) {
        Say(stderr, "dewarp-desk: the node broke a rule: {}", finding);
    }
    for (const std::string& missed : results_.missedLimits) {
        Say(stderr, "dewarp-desk: {}", missed);
    }
}

}  // namespace desk
