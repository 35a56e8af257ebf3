#pragma once

#include <cstdint>
#include <opencv2/core.hpp>
#include <vector>

namespace desk {

/// Measures how far the background moves from one picture to the next, on the pictures themselves: corners,
/// as many from each cell of the picture, are followed there and back. The background moves as far as their
/// median, so that nothing counts that covers less than half of what can be seen.
class MotionMeter {
public:
    /// Takes the next picture of the clip: 8-bit luma, of one size. It is copied.
    void Add(const cv::Mat& luma);

    /// Root of the mean square step in pixels, over all pictures or those from `first` to before `end`, of
    /// which each has come a step from the one before it; not a number when no corner could be followed
    /// there.
    double Rms(size_t first = 0, size_t end = SIZE_MAX) const;

    size_t Pictures() const {
        return steps_.size();
    }

private:
    cv::Mat previous_;
    std::vector<double> steps_;  ///< not a number where no corner could be followed
};

}  // namespace desk
