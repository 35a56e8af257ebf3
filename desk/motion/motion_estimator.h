#pragma once

#include <opencv2/core.hpp>
#include <vector>

#include "desk/motion/frame_pose.h"

namespace desk {

/// Estimates where the camera points in every frame, from the background: what moves alike all over the
/// picture. Corners of a key frame (Shi and Tomasi 1994), as many from each cell of a grid, are followed
/// there and back by the pyramidal Lucas-Kanade method. The motion of the one that most others agree with is
/// a first guess, and the pose is fitted to those that make it. What moves by itself is remembered: its
/// corners lose their trust, and those found later in its place start without. A frame becomes the next key
/// frame when too few of the old one's corners are left, so that errors add up from key frame to key frame
/// only.
class MotionEstimator {
public:
    /// The next frame's luma, 8-bit, of one size. A camera that stands keeps its pose to the last bit. Where
    /// too little agrees, as at a cut, the camera counts as standing.
    FramePose Add(const cv::Mat& luma);

private:
    /// A corner of the key frame. All that follows is in pixels of the shrunken pictures.
    struct Corner {
        cv::Point2f key;  ///< where it is in the key frame
        Position stood;   ///< where it would be in the newest frame, had the camera stood since the last one
        Position moved;   ///< where it is
        size_t cell;      ///< of the key frame
        Position scene;   ///< what it shows
        double trust;     ///< that it belongs to the background, 0 to 1
        double share;     ///< of what its cell of the grid counts
    };

    void MakeKey(bool isCut);
    void Follow();
    std::vector<double> FirstErrors() const;
    double FitRobustly(std::vector<double>& errors, FramePose& pose) const;
    bool FindMotion();
    size_t Trust(const std::vector<double>& errors, double limit);
    void MoveTo(const FramePose& pose, double chance);

    cv::Mat key_;      ///< shrunken, as all that is followed in
    cv::Mat picture_;  ///< of the frame added last
    FramePose pose_;
    int stood_ = 0;  ///< for how many frames the camera has stood
    std::vector<Corner> corners_;
    double trusted_ = 0;  ///< how many of them were to be trusted when they were chosen
};

}  // namespace desk
