#pragma once

#include <filesystem>

#include "desk/demo/before_after.h"
#include "desk/demo/clip_writer.h"
#include "desk/demo/demo_options.h"
#include "desk/demo/motion.h"
#include "desk/demo/nv12.h"
#include "desk/demo/quality.h"
#include "desk/demo/report.h"

namespace desk {

/// Sets the shaky and the steadied clip side by side: writes both, measures both, and makes the before/after
/// picture. The shaky clip is the centre of the input frames, what a camera without a stabiliser records.
class Comparison {
public:
    /// Files go into the folder, which exists. Throws std::runtime_error when no clip can be written.
    Comparison(const DemoOptions& options, const std::filesystem::path& folder);

    /// The next frame: the node's input and output, and the output that would have been perfect.
    void Add(const Nv12& input, const Nv12& output, const Nv12& ideal);

    /// Completes the files and fills in the result's measurements.
    void Finish(VariantResult& result);

private:
    void WriteBeforeAfter(const VariantResult& result) const;

    DemoOptions options_;
    std::filesystem::path folder_;
    ClipWriter shakyClip_;
    ClipWriter steadyClip_;
    LongExposure shakyExposure_;
    LongExposure steadyExposure_;
    MotionMeter shakyMotion_;
    MotionMeter steadyMotion_;
    PsnrMeter luma_;
    PsnrMeter chroma_;
};

}  // namespace desk
