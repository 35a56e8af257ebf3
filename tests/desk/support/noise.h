#pragma once

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

/// Noise from black to white, softened so that corners can be followed.
inline cv::Mat Noise(cv::Size size, int type) {
    cv::Mat noise(size, type);
    cv::RNG(7).fill(noise, cv::RNG::UNIFORM, 0, 256);
    cv::GaussianBlur(noise, noise, cv::Size(), 3);
    cv::normalize(noise, noise, 0, 255, cv::NORM_MINMAX);
    return noise;
}
