#pragma once

#include <filesystem>
#include <memory>

#include "desk/demo/before_after.h"
#include "desk/demo/motion.h"
#include "desk/tool/clip_writer.h"
#include "desk/tool/options.h"
#include "desk/tool/results.h"

namespace desk {

/// What a run writes: the clip, and for a report the measurements on its pictures.
class RunOutput {
public:
    /// `format` is that of the node's output; `clip` may be empty. `results` must outlive this. Throws as
    /// ClipWriter does, and UsageError when the place of the JSON or the report may not be
    /// overwritten.
    RunOutput(const CommonOptions& options, const std::filesystem::path& clip, const ClipFormat& format,
              RunResults& results);

    /// The next frame: the node's input and output.
    void Add(const Nv12& input, const Nv12& output);

    /// Completes the clip, the measurements in the results, the JSON and the report.
    void Finish();

private:
    void Measure(const Nv12& before, const Nv12& output);

    CommonOptions options_;
    RunResults& results_;
    Nv12 sideBySide_;
    std::unique_ptr<ClipWriter> writer_;
    LongExposure exposureBefore_;
    LongExposure exposureAfter_;
    MotionMeter motionBefore_;
    MotionMeter motionAfter_;
};

/// The middle of a picture; the size is even and no larger than the picture.
Nv12 Middle(const Nv12& picture, cv::Size size);

/// The code of a run that did all it could; says on stderr when it was interrupted.
int FinishedCode(const RunResults& results);

}  // namespace desk
