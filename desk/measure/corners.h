#pragma once

#include <cstddef>
#include <opencv2/core.hpp>
#include <vector>

namespace desk {

/// The grid over a picture whose cells corners are taken from and counted by.
constexpr size_t CellColumns = 8;
constexpr size_t CellRows = 6;
constexpr size_t CellCount = CellColumns * CellRows;

/// The cell that a position of the picture lies in, row by row.
size_t CellOf(cv::Point2f at, cv::Size picture);

/// Corners (Shi and Tomasi 1994) of an 8-bit picture, the best of each cell first, no more than `perCell` of
/// one. `quality` is that of the dullest against the best one's, 0 to 1. They keep away from black bars at
/// the borders.
std::vector<cv::Point2f> SpreadCorners(const cv::Mat& picture, size_t perCell, double quality);

/// Follows corners by the pyramidal Lucas-Kanade method, there and back. `moved` holds guesses, and the
/// places afterwards. Returns which came back to where they started (the forward-backward error of Kalal,
/// Mikolajczyk and Matas 2010): noise does not.
std::vector<bool> FollowCorners(const cv::Mat& from, const cv::Mat& to,
                                const std::vector<cv::Point2f>& corners, std::vector<cv::Point2f>& moved);

}  // namespace desk
