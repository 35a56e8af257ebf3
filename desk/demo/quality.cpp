#include "desk/demo/quality.h"

#include <algorithm>
#include <cmath>

namespace desk {
namespace {

double Decibels(double meanSquare) {
    constexpr double Peak = 255;
    return 10 * std::log10(Peak * Peak / meanSquare);
}

}  // namespace

void PsnrMeter::Add(const cv::Mat& plane, const cv::Mat& ideal) {
    CV_Assert(plane.size() == ideal.size() && plane.type() == ideal.type());
    const double squares = cv::norm(plane, ideal, cv::NORM_L2SQR);
    const auto samples = static_cast<double>(plane.total() * static_cast<size_t>(plane.channels()));
    squares_ += squares;
    samples_ += samples;
    worstMean_ = std::max(worstMean_, squares / samples);
}

double PsnrMeter::All() const {
    return Decibels(squares_ / samples_);
}

double PsnrMeter::Worst() const {
    return Decibels(worstMean_);
}

}  // namespace desk
