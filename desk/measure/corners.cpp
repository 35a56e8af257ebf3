#include "desk/measure/corners.h"

#include <algorithm>
#include <array>
#include <opencv2/imgproc.hpp>
#include <opencv2/video/tracking.hpp>

namespace desk {

size_t CellOf(cv::Point2f at, cv::Size picture) {
    const auto along = [](float x, int pixels, size_t cells) {
        return std::min(static_cast<size_t>(std::max(x, 0.0F)) * cells / static_cast<size_t>(pixels),
                        cells - 1);
    };
    return along(at.y, picture.height, CellRows) * CellColumns + along(at.x, picture.width, CellColumns);
}

std::vector<cv::Point2f> SpreadCorners(const cv::Mat& picture, size_t perCell, double quality) {
    constexpr double Black = 24;  // levels, in 8-bit limited range with a codec's noise
    const int apart = picture.rows / 40;
    // What black bars leave of the picture, less so much of its borders that no corner there sees a bar: what
    // moves along the edge of a bar seems to stand in the other direction.
    cv::Mat mask = cv::Mat::zeros(picture.size(), CV_8U);
    mask(cv::boundingRect(picture > Black)).setTo(255);
    cv::erode(mask, mask, cv::Mat::ones(2 * apart + 1, 2 * apart + 1, CV_8U), {-1, -1}, 1,
              cv::BORDER_CONSTANT, 255);
    std::vector<cv::Point2f> corners;
    cv::goodFeaturesToTrack(picture, corners, 0, quality, apart, mask);
    std::array<size_t, CellCount> taken{};
    const auto isSpare = [&](const cv::Point2f& at) {
        return taken[CellOf(at, picture.size())]++ >= perCell;
    };
    corners.erase(std::remove_if(corners.begin(), corners.end(), isSpare), corners.end());
    return corners;
}

std::vector<bool> FollowCorners(const cv::Mat& from, const cv::Mat& to,
                                const std::vector<cv::Point2f>& corners, std::vector<cv::Point2f>& moved) {
    constexpr double MaxReturnError = 0.5;  // pixels: six times what a corner of a dull wall is off
    if (corners.empty()) {
        return {};
    }
    const auto follow = [](const cv::Mat& here, const cv::Mat& there, const auto& start, auto& end) {
        std::vector<uchar> found;
        cv::calcOpticalFlowPyrLK(here, there, start, end, found, cv::noArray(), {21, 21}, 3,
                                 {cv::TermCriteria::COUNT | cv::TermCriteria::EPS, 30, 0.005},
                                 cv::OPTFLOW_USE_INITIAL_FLOW);
        return found;
    };
    std::vector<cv::Point2f> returned = corners;
    const auto there = follow(from, to, corners, moved);
    const auto back = follow(to, from, moved, returned);
    std::vector<bool> followed;
    for (size_t i = 0; i < corners.size(); i++) {
        followed.push_back(there[i] != 0 && back[i] != 0 &&
                           cv::norm(returned[i] - corners[i]) <= MaxReturnError);
    }
    return followed;
}

}  // namespace desk
