#pragma once

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#ifdef __SANITIZE_THREAD__
// The picture library is not built with the sanitizer, which misses how its threads wait for one another.
inline const bool isOnOneThread = (cv::setNumThreads(1), true);
#endif

/// Noise from black to white, softened so that corners can be followed.
inline cv::Mat Noise(cv::Size size, int type) {
    cv::Mat noise(size, type);
    cv::RNG(7).fill(noise, cv::RNG::UNIFORM, 0, 256);
    cv::GaussianBlur(noise, noise, cv::Size(), 3);
    cv::normalize(noise, noise, 0, 255, cv::NORM_MINMAX);
    return noise;
}
