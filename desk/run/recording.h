#pragma once

#include <chrono>
#include <map>
#include <optional>

#include "desk/clip/clip_reader.h"
#include "desk/clip/clip_writer.h"
#include "desk/measure/motion_meter.h"
#include "desk/output/output.h"
#include "desk/report/results.h"
#include "desk/run/settings.h"

namespace desk {

/// What a run makes of its frames: clips, measurements on the pictures, JSON and report.
class Recording {
public:
    /// The reader is that of the node's input; the results' facts know the sizes. Says on stderr what is not
    /// kept of the clip. Options, results and reader must outlive this. Throws as ClipReader and ClipWriter
    /// do; UsageError when the truth has another size.
    Recording(const RunOptions& options, RunResults& results, ClipReader& reader);

    /// The next frame: the node's input and output, and its time. Throws UsageError when the truth has ended.
    void Add(const Nv12& input, const Nv12& output, const FrameTime& time);

    /// Completes the clips, adds the measurements to the results, writes JSON and report, and says what
    /// was measured and what went wrong.
    void Finish();

private:
    /// Of a clip.
    enum Content : size_t { Before, After, Both };
    struct Shown {
        void AddToMean(const Nv12& picture);
        /// The mean of the last pictures, 8-bit BGR: what stands still is sharp, what moves is blurred.
        cv::Mat Mean() const;

        int pictures = 0;
        cv::Mat lumaMean;
        cv::Mat chromaMean;
        MotionMeter motion;
    };

    void CopyOthers();
    void AddMotion();
    void FindWorseFrames();
    /// The summary, and what else there is to be said.
    void Tell() const;

    const RunOptions& options_;
    RunResults& results_;
    ClipReader& reader_;
    std::optional<Folder> report_;
    std::map<Content, ClipWriter> clips_;
    Nv12 sideBySide_;
    Shown before_;
    Shown after_;
    std::optional<ClipReader> truth_;
    Nv12 ideal_;
    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

}  // namespace desk
