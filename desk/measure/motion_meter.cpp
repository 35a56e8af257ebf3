#include "desk/measure/motion_meter.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <opencv2/imgproc.hpp>
#include <utility>

#include "desk/measure/corners.h"

namespace desk {
namespace {

double Median(std::vector<double>& values) {
    if (values.empty()) {
        return std::numeric_limits<double>::quiet_NaN();
    }
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

}  // namespace

void MotionMeter::Add(const cv::Mat& luma) {
    constexpr size_t PerCell = 4;
    constexpr double Quality = 0.002;        // of the best corner's: low, so that dull cells count too
    constexpr double MaxReturnError = 0.25;  // pixels: many times what a corner that is followed well is off
    constexpr size_t MinBack = 4;            // one of so many corners comes back, or nothing was followed
    constexpr int EnoughRows = 360;          // to choose corners in; they are followed in the whole picture
    const cv::Mat previous = std::exchange(previous_, luma.clone());
    std::array<std::vector<double>, CellCount> cells;
    if (!previous.empty()) {
        const int factor = std::max(1, luma.rows / EnoughRows);
        cv::Mat shrunken;
        cv::resize(previous, shrunken, previous.size() / factor, 0, 0, cv::INTER_AREA);
        auto start = SpreadCorners(shrunken, PerCell, Quality);
        for (cv::Point2f& corner : start) {
            corner *= factor;
        }
        auto end = start;
        if (!start.empty()) {
            const auto followed = FollowCorners(previous, previous_, start, end, MaxReturnError);
            // Behind a cut few come back, and those by chance.
            const auto back = static_cast<size_t>(std::count(followed.begin(), followed.end(), true));
            for (size_t i = 0; i < start.size() && MinBack * back >= start.size(); i++) {
                if (followed[i]) {
                    cells[CellOf(start[i], luma.size())].push_back(cv::norm(end[i] - start[i]));
                }
            }
        }
    }
    std::vector<double> all;
    for (auto& cell : cells) {
        if (!cell.empty()) {
            all.push_back(Median(cell));
        }
    }
    steps_.push_back(Median(all));
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
