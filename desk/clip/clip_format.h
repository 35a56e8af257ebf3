#pragma once

extern "C" {
#include <libavutil/pixfmt.h>
#include <libavutil/rational.h>
}

#include <cstdint>
#include <limits>
#include <opencv2/core.hpp>
#include <vector>

namespace desk {

/// The name that stands for stdin and stdout.
constexpr const char* StdStream = "-";

/// Frames first to end - 1 of a clip, counted from 0.
struct FrameRange {
    int64_t first = 0;
    int64_t end = std::numeric_limits<int64_t>::max();
};

/// Adds frames, one or more, to ranges that lie before them; what is next to the last range becomes part of
/// it.
inline void Extend(std::vector<FrameRange>& ranges, int64_t first, int64_t count = 1) {
    if (ranges.empty() || ranges.back().end != first) {
        ranges.push_back({first, first});
    }
    ranges.back().end += count;
}

/// From when on a frame is shown and how long, in microseconds of its clip.
struct FrameTime {
    int64_t start = 0;
    int64_t duration = 0;
};

/// What a clip's frames are, apart from their pixels.
struct ClipFormat {
    cv::Size size;
    AVRational rate = {30, 1};                ///< frames per second; a guess where they are uneven
    AVColorRange range = AVCOL_RANGE_JPEG;    ///< limited where it is not told
    AVColorSpace matrix = AVCOL_SPC_BT470BG;  ///< as BT.601 has it
    AVColorPrimaries primaries = AVCOL_PRI_UNSPECIFIED;
    AVColorTransferCharacteristic transfer = AVCOL_TRC_UNSPECIFIED;
    AVChromaLocation chromaPlace = AVCHROMA_LOC_CENTER;
    AVRational pixelAspect = {0, 1};  ///< width to height of a pixel; 0 where nothing is known
    AVRational tick = {0, 1};         ///< seconds that times are multiples of; 0 where it is a frame
};

}  // namespace desk
