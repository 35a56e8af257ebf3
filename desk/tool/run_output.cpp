#include "desk/tool/run_output.h"

#include <fmt/format.h>

#include "desk/demo/nv12.h"
#include "desk/tool/errors.h"
#include "desk/tool/progress.h"
#include "desk/tool/run_report.h"

namespace desk {
namespace {

constexpr int GapInCompare = 4;  // pixels between the two pictures

cv::Size SideBySide(cv::Size size) {
    return {2 * size.width + GapInCompare, size.height};
}

void CopyInto(const Nv12& picture, int column, Nv12& wide) {
    picture.luma.copyTo(wide.luma(cv::Rect({column, 0}, picture.luma.size())));
    picture.chroma.copyTo(wide.chroma(cv::Rect({column / 2, 0}, picture.chroma.size())));
}

}  // namespace

Nv12 Middle(const Nv12& picture, cv::Size size) {
    // Whole chroma samples, so the corner is even.
    const cv::Point corner((picture.luma.cols - size.width) / 4 * 2,
                           (picture.luma.rows - size.height) / 4 * 2);
    Nv12 middle = picture;
    middle.luma = picture.luma(cv::Rect(corner, size));
    middle.chroma = picture.chroma(cv::Rect(corner / 2, size / 2));
    return middle;
}

RunOutput::RunOutput(const CommonOptions& options, const std::filesystem::path& clip,
                     const ClipFormat& format, RunResults& results)
    : options_(options), results_(results), sideBySide_(SideBySide(format.size)) {
    if (!options.json.empty() && options.json != "-") {
        RequireFree(options.json, options.overwrite);
    }
    if (!options.report.empty()) {
        RequireReportFree(options.report, options.overwrite);
    }
    results.output = clip.string();
    results.framesPerSecond = format.FramesPerSecond();
    sideBySide_.luma.setTo(0);
    sideBySide_.chroma.setTo(cv::Scalar::all(128));
    if (!clip.empty()) {
        ClipFormat written = format;
        written.size = options.compare ? SideBySide(format.size) : format.size;
        writer_ = std::make_unique<ClipWriter>(clip, written, options.overwrite);
    }
}

void RunOutput::Add(const Nv12& input, const Nv12& output) {
    const Nv12 before = Middle(input, output.luma.size());
    if (writer_) {
        const StageTimer timer(results_, "write");
        if (options_.compare) {
            CopyInto(before, 0, sideBySide_);
            CopyInto(output, output.luma.cols + GapInCompare, sideBySide_);
        }
        writer_->Add(options_.compare ? sideBySide_ : output);
    }
    if (!options_.report.empty()) {
        const StageTimer timer(results_, "measure");
        Measure(before, output);
    }
}

void RunOutput::Measure(const Nv12& before, const Nv12& output) {
    exposureBefore_.Add(ReadNv12(before));
    exposureAfter_.Add(ReadNv12(output));
    motionBefore_.Add(before.luma);
    motionAfter_.Add(output.luma);
}

void RunOutput::Finish() {
    if (writer_) {
        writer_->Finish();
    }
    if (!options_.report.empty()) {
        results_.before = exposureBefore_.Mean();
        results_.after = exposureAfter_.Mean();
        if (motionBefore_.Tracks() > 0 && motionAfter_.Tracks() > 0) {
            results_.motionBefore = motionBefore_.Rms();
            results_.motionAfter = motionAfter_.Rms();
        }
    }
    WriteJson(ToJson(results_), options_.json, options_.overwrite);
    if (!options_.report.empty()) {
        WriteRunReport(results_, options_.report, options_.overwrite);
    }
}

int FinishedCode(const RunResults& results) {
    for (const std::string& finding : results.findings) {
        fmt::print(stderr, "dewarp-desk: the node broke a rule: {}\n", finding);
    }
    if (Interrupted()) {
        fmt::print(stderr, "dewarp-desk: interrupted after {} frames{}\n", results.frames.size(),
                   results.output.empty() ? "" : "; " + results.output + " holds them");
        return WasInterrupted;
    }
    return results.findings.empty() ? Done : CheckFailed;
}

}  // namespace desk
