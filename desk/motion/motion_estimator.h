#pragma once

#include <opencv2/core.hpp>
#include <vector>

#include "desk/motion/frame_pose.h"

namespace desk {

/// Estimates where the camera points in every frame: corners of a key frame (Shi and Tomasi 1994) are
/// followed by the pyramidal Lucas-Kanade method, RANSAC finds those that move together, and the pose is
/// fitted to them. A frame becomes the next key frame when too few of the old one's corners are left, so that
/// errors add up from key frame to key frame only.
class MotionEstimator {
public:
    /// The next frame's luma, 8-bit, of one size. Where too few corners agree, as at a cut, the camera counts
    /// as standing still.
    FramePose Add(const cv::Mat& luma);

private:
    void MakeKey();
    size_t Follow();

    cv::Mat key_;      ///< shrunken, as all that is followed in
    cv::Mat picture_;  ///< of the frame added last
    int factor_ = 1;   ///< by which they are shrunken
    FramePose pose_;
    std::vector<cv::Point2f> corners_;  ///< in the key frame
    std::vector<Position> scene_;       ///< what they show
    std::vector<cv::Point2f> moved_;    ///< in the frame added last
};

}  // namespace desk
