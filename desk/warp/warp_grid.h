#pragma once

#include <functional>
#include <opencv2/core.hpp>

#include "desk/warp/grid_size.h"
#include "host/lumnoderequest.h"

namespace desk {

/// The warp grid with which the node shows input position inputOf(q) at output position q, both relative to
/// the centre of their picture. Enabled; the two dump values are the input's width and height.
IPEICAGridTransform MakeGrid(cv::Size input, const std::function<cv::Point2d(cv::Point2d)>& inputOf);

}  // namespace desk
