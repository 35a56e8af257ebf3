#include "desk/measure/motion_meter.h"

#include <cmath>
#include <opencv2/imgproc.hpp>
#include <opencv2/video/tracking.hpp>
#include <utility>
#include <vector>

namespace desk {

void MotionMeter::Add(const cv::Mat& luma) {
    constexpr int MaxCorners = 400;          // the time grows with their number, precision with its root only
    constexpr double Quality = 0.01;         // of the best corner's: duller ones are followed less well
    constexpr double MaxReturnError = 0.25;  // pixels: many times what a corner that is followed well is off
    const double apart = luma.rows / 36.0;   // so that they spread over the whole picture
    const cv::Mat previous = std::exchange(previous_, luma.clone());
    std::vector<cv::Point2f> start;
    if (!previous.empty()) {
        cv::goodFeaturesToTrack(previous, start, MaxCorners, Quality, apart);
    }
    if (start.empty()) {
        return;
    }
    const auto follow = [](const cv::Mat& from, const cv::Mat& to, const auto& points, auto& found) {
        std::vector<cv::Point2f> moved;
        cv::calcOpticalFlowPyrLK(from, to, points, moved, found, cv::noArray(), {21, 21}, 4,
                                 {cv::TermCriteria::COUNT | cv::TermCriteria::EPS, 40, 0.005});
        return moved;
    };
    std::vector<uchar> there;
    std::vector<uchar> back;
    const auto end = follow(previous, previous_, start, there);
    const auto returned = follow(previous_, previous, end, back);
    for (size_t i = 0; i < start.size(); i++) {
        if (there[i] != 0 && back[i] != 0 && cv::norm(returned[i] - start[i]) <= MaxReturnError) {
            const cv::Point2f step = end[i] - start[i];
            squares_ += step.ddot(step);
            tracks_++;
        }
    }
}

double MotionMeter::Rms() const {
    return std::sqrt(squares_ / static_cast<double>(tracks_));
}

}  // namespace desk
