#include "desk/warp/reference_renderer.h"

#include <algorithm>

namespace desk {
namespace {

/// A plane with a sample for every `pitch` by `pitch` pixels, each in their middle.
struct PlaneScale {
    int pitch;

    /// `sample` is row and column.
    cv::Point2d ToPixel(const int* sample) const {
        return {(sample[1] + 0.5) * pitch - 0.5, (sample[0] + 0.5) * pitch - 0.5};
    }
    cv::Point2d ToSample(cv::Point2d pixel) const {
        return {(pixel.x + 0.5) / pitch - 0.5, (pixel.y + 0.5) / pitch - 0.5};
    }
};

/// Linear between the four samples around a position of the plane, whose edge goes on beyond it.
template <int Channels>
cv::Vec<uint8_t, Channels> Interpolate(const cv::Mat& plane, cv::Point2d at) {
    const double x = std::clamp(at.x, 0.0, plane.cols - 1.0);
    const double y = std::clamp(at.y, 0.0, plane.rows - 1.0);
    const int column = std::min(static_cast<int>(x), plane.cols - 2);
    const int row = std::min(static_cast<int>(y), plane.rows - 2);
    const auto between = [&](const auto* samples) {
        const cv::Vec<double, Channels> left = samples[column];
        const cv::Vec<double, Channels> right = samples[column + 1];
        return left + (x - column) * (right - left);
    };
    const auto upper = between(plane.ptr<cv::Vec<uint8_t, Channels>>(row));
    const auto lower = between(plane.ptr<cv::Vec<uint8_t, Channels>>(row + 1));
    return upper + (y - row) * (lower - upper);
}

template <int Channels>
void RenderPlane(const WarpMap& map, PlaneScale scale, const cv::Mat& input, cv::Mat& output) {
    using Levels = cv::Vec<uint8_t, Channels>;
    output.forEach<Levels>([&](Levels& levels, const int* sample) {
        const cv::Point2d shown = scale.ToPixel(sample);
        levels =
            map.Covers(shown, 0) ? Interpolate<Channels>(input, scale.ToSample(map.At(shown))) : Levels();
    });
}

}  // namespace

void RenderReference(const WarpMap& map, const Nv12& input, Nv12& output) {
    RenderPlane<1>(map, {1}, input.luma, output.luma);
    RenderPlane<2>(map, {2}, input.chroma, output.chroma);
}

cv::Mat CoverageMask(const WarpMap& map, cv::Size size, int samplePitch) {
    cv::Mat_<uint8_t> mask(size);
    mask.forEach([&](uint8_t& isCovered, const int* sample) {
        isCovered = map.Covers(PlaneScale{samplePitch}.ToPixel(sample), samplePitch) ? 255 : 0;
    });
    return mask;
}

}  // namespace desk
