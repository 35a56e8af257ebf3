#pragma once

#include "desk/clip/av_handles.h"
#include "desk/clip/clip_format.h"
#include "desk/clip/nv12.h"

namespace desk {

/// Converts between pixel formats and sizes, each side's samples in the range that its frame tells. The
/// matrix stays as it is where both sides are YCbCr.
class AvScaler {
public:
    /// Throws std::runtime_error when the conversion is not known.
    void Convert(const AVFrame& from, AVFrame& to, int matrix);

private:
    AvOwned<SwsContext> scaler_;
};

/// The picture as FFmpeg takes it, of a clip of this format; valid as long as the picture.
AvOwned<AVFrame> ViewOf(const Nv12& picture, const ClipFormat& format);

inline AVColorRange RangeOf(const ClipFormat& format) {
    return format.fullRange ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
}

}  // namespace desk
