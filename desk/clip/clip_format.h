#pragma once

extern "C" {
#include <libavutil/pixfmt.h>
#include <libavutil/rational.h>
}

#include <cstdint>
#include <limits>
#include <opencv2/core.hpp>

namespace desk {

/// Frames first to end - 1 of a clip, counted from 0.
struct FrameRange {
    int64_t first = 0;
    int64_t end = std::numeric_limits<int64_t>::max();
};

/// From when on a frame is shown and how long, in ticks of its clip.
struct FrameTime {
    int64_t start = 0;
    int64_t duration = 0;
};

/// What a clip's frames are, apart from their pixels. Numbers of colours are those of H.273, 2 where nothing
/// is known.
struct ClipFormat {
    cv::Size size;
    int rateNumerator = 30;  ///< frames per second, as a fraction; a guess where they are uneven
    int rateDenominator = 1;
    bool fullRange = true;  ///< whether luma goes from 0 to 255 or from 16 to 235
    int matrix = 5;         ///< 5 is BT.601
    bool isRangeTold = true;
    int primaries = AVCOL_PRI_UNSPECIFIED;
    int transfer = AVCOL_TRC_UNSPECIFIED;
    int chromaPlace = AVCHROMA_LOC_CENTER;  ///< as FFmpeg counts them
    AVRational pixelAspect = {0, 1};        ///< width to height of a pixel; 0 where nothing is known
    AVRational tick = {0, 1};               ///< seconds; 0 where it is a frame

    double FramesPerSecond() const {
        return static_cast<double>(rateNumerator) / rateDenominator;
    }
    AVRational FrameSeconds() const {
        return {rateDenominator, rateNumerator};
    }
};

}  // namespace desk
