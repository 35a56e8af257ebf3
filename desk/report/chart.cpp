#include "desk/report/chart.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

namespace desk {
namespace {

constexpr int Width = 960;
constexpr int Height = 320;
const cv::Rect2d Plot(80, 56, Width - 100, Height - 96);

// Blue, vermilion, green and purple, which people who see few colours tell apart; as BGR.
const cv::Scalar Colours[] = {{178, 114, 0}, {0, 94, 213}, {115, 158, 0}, {167, 121, 204}};
const cv::Scalar Black = cv::Scalar::all(0);
const cv::Scalar Grey = cv::Scalar::all(130);

void DrawLine(cv::Mat& picture, cv::Point2d from, cv::Point2d to, const cv::Scalar& colour,
              int thickness = 1) {
    constexpr int Bits = 4;  // of a pixel's fraction
    const auto fixed = [](cv::Point2d p) { return cv::Point(p * (1 << Bits)); };
    cv::line(picture, fixed(from), fixed(to), colour, thickness, cv::LINE_AA, Bits);
}

/// Returns the text's width.
int DrawText(cv::Mat& picture, const std::string& text, cv::Point2d at, const cv::Scalar& colour) {
    constexpr double Size = 0.45;
    cv::putText(picture, text, at, cv::FONT_HERSHEY_SIMPLEX, Size, colour, 1, cv::LINE_AA);
    return cv::getTextSize(text, cv::FONT_HERSHEY_SIMPLEX, Size, 1, nullptr).width;
}

/// A round distance for about this many lines.
double RoundStep(double extent, int lines) {
    const double power = std::pow(10.0, std::floor(std::log10(extent / lines)));
    const double factor = extent / lines / power;
    return power * (factor <= 1 ? 1 : factor <= 2 ? 2 : factor <= 5 ? 5 : 10);
}

/// What is drawn of values and frames, and where.
struct Scale {
    explicit Scale(const std::vector<ChartLine>& lines) {
        for (const ChartLine& line : lines) {
            last = std::max(last, static_cast<double>(line.values.size()) - 1);
            for (const double value : line.values) {
                low = std::fmin(low, std::isfinite(value) ? value : low);
                high = std::fmax(high, std::isfinite(value) ? value : high);
            }
        }
        high = high > low ? high : low + 1;
        step = RoundStep(high - low, 5);
        low = std::floor(low / step) * step;
        high = std::ceil(high / step) * step;
    }
    cv::Point2d At(double frame, double value) const {
        return {Plot.x + Plot.width * frame / last, Plot.y + Plot.height * (high - value) / (high - low)};
    }

    double low = 0;
    double high = 0;
    double step = 1;
    double last = 1;  ///< frame
};

void DrawAxes(cv::Mat& picture, const Scale& scale) {
    for (int line = 0; scale.low + line * scale.step <= scale.high + scale.step / 2; line++) {
        const double value = scale.low + line * scale.step;
        const cv::Point2d left = scale.At(0, value);
        DrawLine(picture, left, scale.At(scale.last, value), cv::Scalar::all(220));
        const double shown = std::abs(value) < scale.step / 2 ? 0 : value;
        DrawText(picture, fmt::format("{:8.5g}", shown), left - cv::Point2d(70, -4), Black);
    }
    const int step = std::max(1, cvRound(RoundStep(scale.last, 8)));
    for (int frame = 0; frame <= scale.last; frame += step) {
        DrawText(picture, fmt::format("{}", frame), scale.At(frame, scale.low) + cv::Point2d(-8, 18), Black);
    }
    DrawText(picture, "frame", {Plot.x + Plot.width / 2 - 20, Height - 6.0}, Black);
}

}  // namespace

cv::Mat Draw(const Chart& chart) {
    cv::Mat picture(Height, Width, CV_8UC3, cv::Scalar::all(255));
    DrawText(picture, fmt::format("{} ({})", chart.title, chart.unit), {8, 18}, Black);
    const Scale scale(chart.lines);
    DrawAxes(picture, scale);
    size_t colours = 0;
    double legend = Plot.x;
    for (const ChartLine& line : chart.lines) {
        const cv::Scalar colour = line.isLimit ? Grey : Colours[colours++ % std::size(Colours)];
        for (size_t i = 1; i < line.values.size(); i++) {
            if (std::isfinite(line.values[i - 1]) && std::isfinite(line.values[i])) {
                const auto frame = static_cast<double>(i);
                DrawLine(picture, scale.At(frame - 1, line.values[i - 1]), scale.At(frame, line.values[i]),
                         colour, 2);
            }
        }
        legend += 24 + DrawText(picture, line.name, {legend, 42}, colour);
    }
    return picture;
}

cv::Mat DrawMesh(const std::string& title, const std::vector<cv::Point2d>& vertices, int columns,
                 cv::Size2d frame) {
    constexpr double Top = 26;
    constexpr double Border = 8;
    const cv::Point2d half(frame.width / 2, frame.height / 2);
    cv::Point2d low = -half;
    cv::Point2d high = half;
    for (const cv::Point2d& vertex : vertices) {
        low = {std::min(low.x, vertex.x), std::min(low.y, vertex.y)};
        high = {std::max(high.x, vertex.x), std::max(high.y, vertex.y)};
    }
    const double scale = (Width - 2 * Border) / std::max(high.x - low.x, 1e-9);
    const double height = std::clamp(scale * (high.y - low.y), 1.0, 4.0 * Width);
    cv::Mat picture(cvCeil(Top + height + Border), Width, CV_8UC3, cv::Scalar::all(255));
    DrawText(picture, title, {8, 18}, Black);
    const auto draw = [&](cv::Point2d from, cv::Point2d to, const cv::Scalar& colour, int thickness) {
        const cv::Point2d origin(Border, Top);
        DrawLine(picture, origin + scale * (from - low), origin + scale * (to - low), colour, thickness);
    };
    if (!frame.empty()) {
        const cv::Point2d other(half.x, -half.y);
        for (const auto& [from, to] :
             {std::pair(-half, other), {other, half}, {half, -other}, {-other, -half}}) {
            draw(from, to, Colours[1], 2);
        }
    }
    const auto width = static_cast<size_t>(columns);
    for (size_t i = 0; i < vertices.size(); i++) {
        if ((i + 1) % width != 0 && i + 1 < vertices.size()) {
            draw(vertices[i], vertices[i + 1], Colours[0], 1);
        }
        if (i + width < vertices.size()) {
            draw(vertices[i], vertices[i + width], Colours[0], 1);
        }
    }
    return picture;
}

std::string Encoded(const cv::Mat& picture, const std::string& extension) {
    std::vector<unsigned char> bytes;
    cv::imencode(extension, picture, bytes, {cv::IMWRITE_JPEG_QUALITY, 90});
    return {bytes.begin(), bytes.end()};
}

}  // namespace desk
