#include "desk/warp/reference_renderer.h"

#include <algorithm>
#include <opencv2/core/utility.hpp>
#include <opencv2/imgproc.hpp>

namespace desk {
namespace {

/// A plane with a sample for every `pitch` by `pitch` pixels, each in their middle.
struct PlaneScale {
    int pitch;

    double ToPixel(int sample) const {
        return (sample + 0.5) * pitch - 0.5;
    }
    double ToSample(double pixel) const {
        return (pixel + 0.5) / pitch - 0.5;
    }
};

/// Linear between the four samples around a position of the plane, which has one more sample on every side.
void Sample(const cv::Mat& bordered, double x, double y, uint8_t* result) {
    // Far beyond the edge there is only the edge; the bound keeps the whole numbers small.
    const double right = std::clamp(x + 1, 0.0, bordered.cols - 1.0);
    const double down = std::clamp(y + 1, 0.0, bordered.rows - 1.0);
    const int column = std::min(static_cast<int>(right), bordered.cols - 2);
    const int row = std::min(static_cast<int>(down), bordered.rows - 2);
    const uint8_t* upper = bordered.ptr(row, column);
    const uint8_t* lower = bordered.ptr(row + 1, column);
    const int channels = bordered.channels();
    for (int i = 0; i < channels; i++) {
        const auto between = [&](const uint8_t* samples) {
            return samples[i] + (right - column) * (samples[i + channels] - samples[i]);
        };
        result[i] =
            cv::saturate_cast<uint8_t>(between(upper) + (down - row) * (between(lower) - between(upper)));
    }
}

void RenderPlane(const WarpMap& map, PlaneScale scale, const cv::Mat& input, cv::Mat& output) {
    cv::Mat bordered;
    cv::copyMakeBorder(input, bordered, 1, 1, 1, 1, cv::BORDER_REPLICATE);
    output.setTo(cv::Scalar::all(0));
    cv::parallel_for_(cv::Range(0, output.rows), [&](const cv::Range& rows) {
        for (int y = rows.start; y < rows.end; y++) {
            for (int x = 0; x < output.cols; x++) {
                const cv::Point2d shown(scale.ToPixel(x), scale.ToPixel(y));
                if (map.Covers(shown, 0)) {
                    const cv::Point2d from = map.At(shown);
                    Sample(bordered, scale.ToSample(from.x), scale.ToSample(from.y), output.ptr(y, x));
                }
            }
        }
    });
}

}  // namespace

void RenderReference(const WarpMap& map, const Nv12& input, Nv12& output) {
    RenderPlane(map, {1}, input.luma, output.luma);
    RenderPlane(map, {2}, input.chroma, output.chroma);
}

cv::Mat CoverageMask(const WarpMap& map, cv::Size size, int samplePitch) {
    const PlaneScale scale{samplePitch};
    cv::Mat mask(size, CV_8U);
    for (int y = 0; y < mask.rows; y++) {
        for (int x = 0; x < mask.cols; x++) {
            mask.at<uint8_t>(y, x) = map.Covers({scale.ToPixel(x), scale.ToPixel(y)}, samplePitch) ? 255 : 0;
        }
    }
    return mask;
}

}  // namespace desk
