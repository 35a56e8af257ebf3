#pragma once

#include <opencv2/core.hpp>
#include <vector>

#include "desk/motion/camera_place.h"

namespace desk {

/// Estimates where the camera looks in every frame: corners of a key frame are followed, and the place is
/// taken that most of them agree on. A frame becomes the next key frame when too few of the old one's corners
/// are left, so that errors add up from key frame to key frame only.
class MotionEstimator {
public:
    /// The next frame's luma, 8-bit, of one size. Where too few corners agree, as at a cut, the camera counts
    /// as standing still.
    CameraPlace Add(const cv::Mat& luma);

private:
    void MakeKey();
    size_t Follow();

    cv::Mat key_;      ///< shrunken, as all that is followed in
    cv::Mat picture_;  ///< of the frame added last
    double factor_ = 1;
    CameraPlace place_;
    std::vector<cv::Point2f> corners_;  ///< in the key frame
    std::vector<Position> scene_;       ///< what they show
    std::vector<cv::Point2f> moved_;    ///< in the frame added last
};

}  // namespace desk
