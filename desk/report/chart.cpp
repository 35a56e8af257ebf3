#include "desk/report/chart.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <iterator>

namespace desk {
namespace {

constexpr double Width = 960;
constexpr double Height = 320;
const cv::Rect2d Plot(80, 56, Width - 100, Height - 96);

// Blue, vermilion, green and purple, which people who see few colours tell apart.
constexpr const char* Colours[] = {"#0072b2", "#d55e00", "#009e73", "#cc79a7"};
constexpr const char* Grey = "#828282";

std::string Text(cv::Point2d at, const std::string& text) {
    return fmt::format("<text x='{:.1f}' y='{:.1f}'>{}</text>\n", at.x, at.y, Escaped(text));
}

std::string Polyline(const std::vector<cv::Point2d>& points, const char* colour, int thickness) {
    std::string text;
    for (const cv::Point2d& point : points) {
        text += fmt::format("{:.2f},{:.2f} ", point.x, point.y);
    }
    return fmt::format("<polyline fill='none' stroke='{}' stroke-width='{}' points='{}'/>\n", colour,
                       thickness, text);
}

std::string Picture(const std::string& title, double height, const std::string& content) {
    return fmt::format(
        "<svg xmlns='http://www.w3.org/2000/svg' viewBox='0 0 {} {:.0f}' font-family='sans-serif' "
        "font-size='13'>\n<rect width='100%' height='100%' fill='white'/>\n{}{}</svg>\n",
        Width, height, Text({8, 18}, title), content);
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

std::string Axes(const Scale& scale) {
    std::string svg;
    for (int line = 0; scale.low + line * scale.step <= scale.high + scale.step / 2; line++) {
        const double value = scale.low + line * scale.step;
        const double shown = std::abs(value) < scale.step / 2 ? 0 : value;
        const cv::Point2d left = scale.At(0, value);
        svg += Polyline({left, scale.At(scale.last, value)}, "#dcdcdc", 1) +
               Text(left - cv::Point2d(70, -4), fmt::format("{:.5g}", shown));
    }
    const int step = std::max(1, static_cast<int>(std::lround(RoundStep(scale.last, 8))));
    for (int frame = 0; frame <= scale.last; frame += step) {
        svg += Text(scale.At(frame, scale.low) + cv::Point2d(-8, 18), std::to_string(frame));
    }
    return svg + Text({Plot.x + Plot.width / 2 - 20, Height - 6}, "frame");
}

std::string Curve(const Scale& scale, const std::vector<double>& values, const char* colour) {
    std::string svg;
    std::vector<cv::Point2d> points;
    for (size_t i = 0; i <= values.size(); i++) {
        if (i < values.size() && std::isfinite(values[i])) {
            points.push_back(scale.At(static_cast<double>(i), values[i]));
        } else if (!points.empty()) {
            svg += Polyline(points, colour, 2);
            points.clear();
        }
    }
    return svg;
}

}  // namespace

std::string Escaped(const std::string& text) {
    std::string escaped;
    for (const char c : text) {
        escaped += c == '<' ? "&lt;" : c == '&' ? "&amp;" : std::string(1, c);
    }
    return escaped;
}

std::string Draw(const Chart& chart) {
    const Scale scale(chart.lines);
    std::string curves;
    std::string legend;
    size_t colours = 0;
    for (const ChartLine& line : chart.lines) {
        const char* colour = line.isLimit ? Grey : Colours[colours++ % std::size(Colours)];
        curves += Curve(scale, line.values, colour);
        legend += fmt::format("<tspan dx='20' fill='{}'>{}</tspan>", colour, Escaped(line.name));
    }
    return Picture(
        fmt::format("{} ({})", chart.title, chart.unit), Height,
        fmt::format("{}{}<text x='{}' y='42'>{}</text>\n", Axes(scale), curves, Plot.x - 20, legend));
}

std::string DrawMargin(const std::string& title, const std::string& unit, const std::vector<Side>& sides,
                       const std::vector<SideUse>& used,
                       const std::vector<std::pair<std::string, double>>& margins) {
    Chart chart{title, unit, {}};
    for (const Side side : sides) {
        ChartLine& line = chart.lines.emplace_back(ChartLine{SideNames[side], {}});
        for (const SideUse& frame : used) {
            line.values.push_back(frame[side]);
        }
    }
    for (const auto& [name, pixels] : margins) {
        chart.lines.push_back({name, std::vector<double>(used.size(), pixels), true});
    }
    return Draw(chart);
}

std::string DrawMesh(const std::string& title, const std::vector<cv::Point2d>& vertices, size_t columns,
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
    const auto place = [&](cv::Point2d p) { return cv::Point2d(Border, Top) + scale * (p - low); };
    const auto strand = [&](size_t first, size_t step, size_t end) {
        std::vector<cv::Point2d> points;
        for (size_t i = first; i < std::min(end, vertices.size()); i += step) {
            points.push_back(place(vertices[i]));
        }
        return Polyline(points, Colours[0], 1);
    };
    std::string svg;
    if (!frame.empty()) {
        const cv::Point2d other(half.x, -half.y);
        svg +=
            Polyline({place(-half), place(other), place(half), place(-other), place(-half)}, Colours[1], 2);
    }
    for (size_t row = 0; row < vertices.size(); row += columns) {
        svg += strand(row, 1, row + columns);
    }
    for (size_t column = 0; column < columns; column++) {
        svg += strand(column, columns, vertices.size());
    }
    return Picture(title, Top + height + Border, svg);
}

}  // namespace desk
