#pragma once

#include <opencv2/core.hpp>

#include "desk/synth/shaky_camera.h"

namespace desk {

/// A photograph as the flat world in front of the cameras. The shaky frames and the ideal picture are taken
/// from the same pixels, so the ideal picture is exactly what a perfect stabiliser would make.
class Scene {
public:
    /// Shrinks the picture's centre (8-bit BGR) until it just holds everything that the camera may see, and
    /// softens it as a lens does. Throws UsageError when the picture is too small: enlarged pixels would be
    /// blurred from the start.
    Scene(const cv::Mat& photo, const ShakyCamera& camera);

    /// What a camera that stands still sees: the scene's central pixels. The size is even in both directions
    /// and no larger than the camera's frames.
    cv::Mat Still(cv::Size size) const;

    /// What the shaky camera records as the given frame, into an 8-bit BGR picture of the camera's frame
    /// size.
    void Record(const ShakyCamera& camera, int frame, cv::Mat& picture);

private:
    cv::Mat pixels_;
    cv::Mat mapX_;  // kept between frames; as large as a frame
    cv::Mat mapY_;
};

}  // namespace desk
