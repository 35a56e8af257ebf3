#pragma once

#include <functional>
#include <opencv2/core.hpp>

#include "desk/synth/shaky_camera.h"

namespace desk {

/// A photograph as the flat world in front of the cameras. The shaky frames and the ideal picture are taken
/// from the same pixels, so the ideal picture is exactly what a perfect stabiliser would make.
class Scene {
public:
    /// Shrinks the picture's middle (8-bit BGR) until it just holds all that may be seen around frames of the
    /// given size, and softens it as a lens does. Throws UsageError when the picture is too small: enlarged
    /// pixels would be blurred from the start.
    Scene(const cv::Mat& photo, cv::Size frame, cv::Size reach);

    /// What a camera that stands still sees: the scene's middle. The size is even in both directions and no
    /// larger than the frames.
    cv::Mat Still(cv::Size size) const;

    /// Films an 8-bit BGR frame whose rows are exposed with the poses that `camera` names. Rows are pixel
    /// indexes.
    void Record(const std::function<CameraPose(double row)>& camera, cv::Mat& picture);

private:
    cv::Mat pixels_;
    cv::Mat_<cv::Vec2f> map_;  ///< as large as a frame; kept between frames
};

}  // namespace desk
