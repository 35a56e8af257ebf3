#include "desk/measure/motion_meter.h"

#include <cmath>
#include <opencv2/imgproc.hpp>
#include <opencv2/video/tracking.hpp>
#include <vector>

namespace desk {
namespace {

using Points = std::vector<cv::Point2f>;

Points Follow(const cv::Mat& from, const cv::Mat& to, const Points& points, std::vector<uchar>& found) {
    Points moved;
    cv::calcOpticalFlowPyrLK(from, to, points, moved, found, cv::noArray(), {21, 21}, 4,
                             {cv::TermCriteria::COUNT | cv::TermCriteria::EPS, 40, 0.005});
    return moved;
}

}  // namespace

void MotionMeter::Add(const cv::Mat& luma) {
    const cv::Mat previous = previous_;
    previous_ = luma.clone();
    Points start;
    if (!previous.empty()) {
        constexpr int MaxCorners = 400;
        constexpr double Quality = 0.01;
        const double apart = luma.rows / 36.0;  // so that they spread over the whole picture
        cv::goodFeaturesToTrack(previous, start, MaxCorners, Quality, apart);
    }
    if (start.empty()) {
        return;
    }
    constexpr double MaxReturnError = 0.25;  // pixels
    std::vector<uchar> there;
    std::vector<uchar> back;
    const Points end = Follow(previous, previous_, start, there);
    const Points returned = Follow(previous_, previous, end, back);
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
