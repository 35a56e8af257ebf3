#pragma once

#include <cstdint>
#include <opencv2/core.hpp>

#include "desk/tool/camera_path.h"
#include "host/lumnoderequest.h"

namespace desk {

/// What a steady camera, put in place of the shaky one, sees in a frame of the shaky one.
class SteadyView {
public:
    /// Sizes in pixels. `path` is the shaky camera's and must outlive this.
    SteadyView(const CameraPath& path, cv::Size input, cv::Size output);

    /// How much of the margin the steady camera uses: 1 when it just sees the input's edge.
    double MarginShare(int64_t frame, const CameraPlace& steady) const;

    /// The steady place, moved towards the shaky camera's just so far that all it sees is in the input.
    CameraPlace Inside(int64_t frame, const CameraPlace& steady) const;

    /// The grid with which the node shows it.
    IPEICAGridTransform Grid(int64_t frame, const CameraPlace& steady) const;

private:
    const CameraPath& path_;
    cv::Size input_;
    cv::Size output_;
};

}  // namespace desk
