#include "desk/tool/reference_renderer.h"

#include <algorithm>
#include <cmath>
#include <opencv2/core/utility.hpp>

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

/// The two samples around a position on one axis, and the share of the second.
struct Neighbours {
    Neighbours(double position, int count) {
        // Far beyond the edge there is only the edge; the bound keeps the whole numbers small.
        const double bounded = std::clamp(position, -1.0, static_cast<double>(count));
        const double floor = std::floor(bounded);
        first = std::clamp(static_cast<int>(floor), 0, count - 1);
        second = std::clamp(static_cast<int>(floor) + 1, 0, count - 1);
        share = bounded - floor;
    }
    int first;
    int second;
    double share;
};

template <int Channels>
cv::Vec<uint8_t, Channels> Sample(const cv::Mat& plane, double x, double y) {
    using Pixel = cv::Vec<uint8_t, Channels>;
    const Neighbours column(x, plane.cols);
    const Neighbours row(y, plane.rows);
    const auto* upper = plane.ptr<Pixel>(row.first);
    const auto* lower = plane.ptr<Pixel>(row.second);
    Pixel result;
    for (int i = 0; i < Channels; i++) {
        const double above =
            upper[column.first][i] * (1 - column.share) + upper[column.second][i] * column.share;
        const double below =
            lower[column.first][i] * (1 - column.share) + lower[column.second][i] * column.share;
        result[i] = cv::saturate_cast<uint8_t>(above * (1 - row.share) + below * row.share);
    }
    return result;
}

template <int Channels>
void RenderPlane(const WarpMap& map, PlaneScale scale, const cv::Mat& input, cv::Mat& output) {
    using Pixel = cv::Vec<uint8_t, Channels>;
    cv::parallel_for_(cv::Range(0, output.rows), [&](const cv::Range& rows) {
        for (int y = rows.start; y < rows.end; y++) {
            auto* pixels = output.ptr<Pixel>(y);
            for (int x = 0; x < output.cols; x++) {
                const cv::Point2d shown(scale.ToPixel(x), scale.ToPixel(y));
                const cv::Point2d from = map.At(shown);
                pixels[x] = map.Covers(shown, 0)
                                ? Sample<Channels>(input, scale.ToSample(from.x), scale.ToSample(from.y))
                                : Pixel::all(0);
            }
        }
    });
}

}  // namespace

void RenderReference(const WarpMap& map, const Nv12& input, Nv12& output) {
    RenderPlane<1>(map, {1}, input.luma, output.luma);
    RenderPlane<2>(map, {2}, input.chroma, output.chroma);
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
