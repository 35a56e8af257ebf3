#pragma once

#include <cmath>
#include <opencv2/core.hpp>

#include "desk/clip/nv12.h"
#include "desk/warp/warp_map.h"

/// The frames and the warp that everyone who renders a real picture is measured with.
namespace bench {

using desk::GridColumns;
using desk::MeshColumns;
using desk::MeshRows;
using desk::Nv12;

/// A camera's small roll, shift and zoom: a warp that even those can render who take no grid. About the
/// image's centre, an output pixel shows what lies at zoom * rotation * pixel + shift of the input.
struct Shake {
    double angle = 0.01;  ///< radians
    double zoom = 0.9;
    double shiftX = 7.25;  ///< pixels
    double shiftY = -4.5;
};

/// A picture of waves, detailed enough to tell a good interpolation from a bad one.
inline Nv12 MakeScene(cv::Size size) {
    const auto wave = [](double x, double y, double phase) {
        const double value =
            std::sin(x / 9.0 + phase) * std::cos(y / 7.0) + 0.5 * std::sin((x + 2.0 * y) / 31.0 + phase);
        return static_cast<uint8_t>(std::lround(128.0 + 60.0 * value));
    };
    Nv12 picture(size);
    for (int y = 0; y < size.height; ++y) {
        for (int x = 0; x < size.width; ++x) {
            picture.luma.at<uint8_t>(y, x) = wave(x, y, 0.0);
        }
    }
    for (int y = 0; y < size.height / 2; ++y) {
        for (int x = 0; x < size.width / 2; ++x) {
            picture.chroma.at<cv::Vec2b>(y, x) = {wave(x, y, 1.0), wave(x, y, 2.0)};
        }
    }
    return picture;
}

/// The shake as a warp grid for pictures of the size.
inline IPEICAGridTransform MakeGrid(const Shake& shake, cv::Size size) {
    const double c = shake.zoom * std::cos(shake.angle);
    const double s = shake.zoom * std::sin(shake.angle);
    return desk::MakeGrid(size, [=](cv::Point2d at) {
        const cv::Point2d half(0.5, 0.5);
        at += half;
        return cv::Point2d(c * at.x + s * at.y + shake.shiftX, c * at.y - s * at.x + shake.shiftY) - half;
    });
}

}  // namespace bench
