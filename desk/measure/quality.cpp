#include "desk/measure/quality.h"

#include <algorithm>
#include <cmath>

namespace desk {

cv::Mat PlaneMeter::Add(const cv::Mat& plane, const cv::Mat& ideal) {
    CV_Assert(plane.size() == ideal.size() && plane.type() == ideal.type());
    cv::Mat difference;
    cv::absdiff(plane, ideal, difference);
    if (!mask_.empty()) {
        difference.setTo(cv::Scalar::all(0), mask_ == 0);
    }
    const cv::Mat levels = difference.reshape(1);
    const double squares = cv::norm(levels, cv::NORM_L2SQR);
    const double samples =
        plane.channels() * (mask_.empty() ? static_cast<double>(plane.total()) : cv::countNonZero(mask_));
    max_ = std::max(max_, static_cast<int>(cv::norm(levels, cv::NORM_INF)));
    sum_ += cv::norm(levels, cv::NORM_L1);
    beyond_ += cv::countNonZero(levels > limit_);
    squares_ += squares;
    samples_ += samples;
    worstMean_ = std::max(worstMean_, squares / samples);
    return difference;
}

double PlaneMeter::Decibels(double meanSquare) {
    constexpr double Peak = 255;
    return 10 * std::log10(Peak * Peak / meanSquare);
}

}  // namespace desk
