#include "desk/measure/motion_meter.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <opencv2/imgproc.hpp>
#include <utility>

#include "desk/measure/corners.h"

namespace desk {
void MotionMeter::Add(const cv::Mat& luma) {
    constexpr size_t PerCell = 4;
    constexpr double Quality = 0.002;  // of the best corner's: low, so that dull cells count too
    constexpr size_t MinBack = 4;      // one of so many corners comes back, or nothing was followed
    constexpr int EnoughRows = 360;    // to choose corners in; they are followed in the whole picture
    const cv::Mat previous = std::exchange(previous_, luma.clone());
    std::vector<double> steps;
    if (!previous.empty()) {
        const int factor = std::max(1, luma.rows / EnoughRows);
        cv::Mat shrunken;
        cv::resize(previous, shrunken, previous.size() / factor, 0, 0, cv::INTER_AREA);
        auto start = SpreadCorners(shrunken, PerCell, Quality);
        for (cv::Point2f& corner : start) {
            corner *= factor;
        }
        auto end = start;
        const auto followed = FollowCorners(previous, previous_, start, end);
        for (size_t i = 0; i < start.size(); i++) {
            if (followed[i]) {
                steps.push_back(cv::norm(end[i] - start[i]));
            }
        }
        if (MinBack * steps.size() < start.size()) {
            steps.clear();  // behind a cut few come back, and those by chance
        }
    }
    const auto middle = steps.begin() + static_cast<std::ptrdiff_t>(steps.size() / 2);
    std::nth_element(steps.begin(), middle, steps.end());
    steps_.push_back(steps.empty() ? std::numeric_limits<double>::quiet_NaN() : *middle);
}

double MotionMeter::Rms(size_t first, size_t end) const {
    double squares = 0;
    double steps = 0;
    for (size_t i = first; i < std::min(end, steps_.size()); i++) {
        if (!std::isnan(steps_[i])) {
            squares += steps_[i] * steps_[i];
            steps++;
        }
    }
    return std::sqrt(squares / steps);
}

}  // namespace desk
