#pragma once

#include <cstdint>
#include <limits>
#include <opencv2/core.hpp>

namespace desk {

/// Frames first to end - 1 of a clip, counted from 0.
struct FrameRange {
    int64_t first = 0;
    int64_t end = std::numeric_limits<int64_t>::max();
};

/// What a clip's frames are, apart from their pixels.
struct ClipFormat {
    cv::Size size;
    int rateNumerator = 30;  ///< frames per second, as a fraction
    int rateDenominator = 1;
    bool fullRange = true;  ///< whether luma goes from 0 to 255 or from 16 to 235
    int matrix = 5;         ///< H.273's number of the matrix coefficients; 5 is BT.601

    double FramesPerSecond() const {
        return static_cast<double>(rateNumerator) / rateDenominator;
    }
};

}  // namespace desk
