#pragma once

#include <opencv2/core.hpp>

namespace desk {

/// Peak signal-to-noise ratio of 8-bit planes against their ideal, over all pixels of all pictures.
class PsnrMeter {
public:
    /// Takes a plane and its ideal, of equal size and channels.
    void Add(const cv::Mat& plane, const cv::Mat& ideal);

    /// Over everything added, in dB; infinite when nothing differs.
    double All() const;

    /// Of the worst picture, in dB; infinite when nothing differs.
    double Worst() const;

private:
    double squares_ = 0;
    double samples_ = 0;
    double worstMean_ = 0;
};

}  // namespace desk
