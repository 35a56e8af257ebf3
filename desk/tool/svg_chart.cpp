#include "desk/tool/svg_chart.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace desk {
namespace {

constexpr int Width = 760;
constexpr int Height = 260;
const cv::Rect Plot(64, 46, Width - 80, Height - 86);

/// Colours that people who see few of them tell apart.
constexpr const char* Colours[] = {"#0072b2", "#d55e00", "#009e73", "#cc79a7"};
constexpr size_t ColourCount = std::size(Colours);

/// Bounds of the values and the distance of the lines drawn across them.
struct Scale {
    double low = 0;
    double high = 0;
    double step = 1;
};

/// A round distance for about this many lines.
double RoundStep(double extent, int lines) {
    const double power = std::pow(10.0, std::floor(std::log10(extent / lines)));
    for (const double factor : {1.0, 2.0, 5.0}) {
        if (extent <= factor * power * lines) {
            return factor * power;
        }
    }
    return 10 * power;
}

Scale ScaleOf(const Chart& chart) {
    constexpr int Lines = 5;
    Scale scale;
    for (const ChartLine& line : chart.lines) {
        for (const double value : line.values) {
            if (std::isfinite(value)) {
                scale.low = std::min(scale.low, value);
                scale.high = std::max(scale.high, value);
            }
        }
    }
    if (scale.high == scale.low) {
        scale.high = scale.low + 1;
    }
    scale.step = RoundStep(scale.high - scale.low, Lines);
    scale.low = std::floor(scale.low / scale.step) * scale.step;
    scale.high = std::ceil(scale.high / scale.step) * scale.step;
    return scale;
}

double ToX(size_t frame, size_t frames) {
    return Plot.x +
           (frames < 2 ? 0 : Plot.width * static_cast<double>(frame) / static_cast<double>(frames - 1));
}

double ToY(double value, const Scale& scale) {
    return Plot.y + Plot.height * (scale.high - value) / (scale.high - scale.low);
}

std::string Text(double x, double y, const char* anchor, const std::string& text) {
    return fmt::format("<text x='{:.1f}' y='{:.1f}' text-anchor='{}'>{}</text>\n", x, y, anchor,
                       EscapeMarkup(text));
}

std::string Axes(const Scale& scale, size_t frames) {
    std::string svg;
    for (int i = 0; scale.low + i * scale.step <= scale.high + scale.step / 2; i++) {
        const double value = scale.low + i * scale.step;
        const double y = ToY(value, scale);
        svg += fmt::format("<line x1='{}' x2='{}' y1='{:.1f}' y2='{:.1f}' stroke='#ddd'/>\n", Plot.x,
                           Plot.x + Plot.width, y, y);
        svg += Text(Plot.x - 6, y + 4, "end", fmt::format("{:.6g}", value));
    }
    const size_t last = std::max<size_t>(frames, 2) - 1;
    const auto step = static_cast<size_t>(std::max(1.0, RoundStep(static_cast<double>(last), 8)));
    for (size_t frame = 0; frame <= last; frame += step) {
        svg += Text(ToX(frame, last + 1), Plot.y + Plot.height + 16, "middle", fmt::format("{}", frame));
    }
    return svg + Text(Plot.x + Plot.width / 2.0, Height - 6, "middle", "frame");
}

std::string Line(const ChartLine& line, const char* colour, const Scale& scale, size_t frames) {
    std::string path;
    bool isDrawing = false;
    for (size_t i = 0; i < line.values.size(); i++) {
        const bool isPoint = std::isfinite(line.values[i]);
        if (isPoint) {
            path += fmt::format("{}{:.1f} {:.1f}", isDrawing ? "L" : "M", ToX(i, frames),
                                ToY(line.values[i], scale));
        }
        isDrawing = isPoint;
    }
    return fmt::format("<path d='{}' fill='none' stroke='{}' stroke-width='1.5'{}/>\n", path, colour,
                       line.isLimit ? " stroke-dasharray='5 4'" : "");
}

std::string Open(int height, const std::string& title, const std::string& unit) {
    std::string svg = fmt::format(
        "<svg xmlns='http://www.w3.org/2000/svg' viewBox='0 0 {} {}' width='{}' height='{}' "
        "font-family='sans-serif' font-size='12'>\n<rect width='100%' height='100%' fill='white'/>\n",
        Width, height, Width, height);
    return svg + Text(8, 16, "start", unit.empty() ? title : fmt::format("{} ({})", title, unit));
}

}  // namespace

std::string ToSvg(const Chart& chart) {
    const Scale scale = ScaleOf(chart);
    size_t frames = 0;
    for (const ChartLine& line : chart.lines) {
        frames = std::max(frames, line.values.size());
    }
    std::string svg = Open(Height, chart.title, chart.unit) + Axes(scale, frames);
    size_t colours = 0;
    double legend = Plot.x;
    for (const ChartLine& line : chart.lines) {
        if (line.isLimit) {
            svg += Line(line, "#777", scale, frames);
            // Its name stands on the line itself: several limits look alike.
            svg += Text(Plot.x + Plot.width - 4, ToY(line.values.front(), scale) - 4, "end", line.name);
            continue;
        }
        const char* colour = Colours[colours++ % ColourCount];
        svg += Line(line, colour, scale, frames);
        svg += fmt::format("<rect x='{:.1f}' y='27' width='10' height='10' fill='{}'/>\n", legend, colour);
        svg += Text(legend + 14, 36, "start", line.name);
        legend += 34 + 6.6 * static_cast<double>(line.name.size());
    }
    return svg + "</svg>\n";
}

std::string MeshSvg(const std::string& title, const std::vector<cv::Point2d>& vertices, int columns,
                    cv::Size2d frame) {
    constexpr double Top = 26;
    constexpr double Border = 8;
    cv::Point2d low(-frame.width / 2, -frame.height / 2);
    cv::Point2d high = -low;
    for (const cv::Point2d& vertex : vertices) {
        low = {std::min(low.x, vertex.x), std::min(low.y, vertex.y)};
        high = {std::max(high.x, vertex.x), std::max(high.y, vertex.y)};
    }
    const double scale = (Width - 2 * Border) / std::max(high.x - low.x, 1e-9);
    const double height = std::clamp(scale * (high.y - low.y), 1.0, 4.0 * Width);
    const auto place = [&](cv::Point2d p) {
        return fmt::format("{:.1f},{:.1f} ", Border + scale * (p.x - low.x), Top + scale * (p.y - low.y));
    };
    std::string svg = Open(static_cast<int>(Top + height + Border), title, "");
    const auto add = [&](const std::string& points, const char* colour, int width) {
        svg += fmt::format("<polyline points='{}' fill='none' stroke='{}' stroke-width='{}'/>\n", points,
                           colour, width);
    };
    if (!frame.empty()) {
        const cv::Point2d half(frame.width / 2, frame.height / 2);
        const cv::Point2d other(half.x, -half.y);
        add(place(-half) + place(other) + place(half) + place(-other) + place(-half), Colours[1], 2);
    }
    const int rows = static_cast<int>(vertices.size()) / columns;
    for (int row = 0; row < rows; row++) {
        std::string line;
        for (int column = 0; column < columns; column++) {
            line += place(vertices.data()[row * columns + column]);
        }
        add(line, Colours[0], 1);
    }
    for (int column = 0; column < columns; column++) {
        std::string line;
        for (int row = 0; row < rows; row++) {
            line += place(vertices.data()[row * columns + column]);
        }
        add(line, Colours[0], 1);
    }
    return svg + "</svg>\n";
}

std::string EscapeMarkup(const std::string& text) {
    std::string escaped;
    for (const char c : text) {
        switch (c) {
            case '&':
                escaped += "&amp;";
                break;
            case '<':
                escaped += "&lt;";
                break;
            case '>':
                escaped += "&gt;";
                break;
            case '\'':
                escaped += "&#39;";
                break;
            case '"':
                escaped += "&quot;";
                break;
            default:
                escaped += c;
        }
    }
    return escaped;
}

}  // namespace desk
