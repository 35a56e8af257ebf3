#pragma once

#include <cstddef>
#include <opencv2/core.hpp>

namespace desk {

/// Measures how far pictures move from one to the next, on the pictures themselves: corners (Shi and Tomasi
/// 1994) are followed by the pyramidal Lucas-Kanade method, there and back, and those that do not return are
/// dropped (the forward-backward error of Kalal, Mikolajczyk and Matas 2010).
class MotionMeter {
public:
    /// Takes the next picture of the clip: 8-bit luma, of one size. It is copied.
    void Add(const cv::Mat& luma);

    /// Root of the mean square displacement in pixels, over all corners of all pairs of pictures; not a
    /// number when no corner could be followed.
    double Rms() const;

private:
    cv::Mat previous_;
    double squares_ = 0;
    size_t tracks_ = 0;
};

}  // namespace desk
