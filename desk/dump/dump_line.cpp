#include "desk/dump/dump_line.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <ostream>

namespace desk {

const char* NameOf(DumpKind kind) {
    constexpr const char* Names[] = {"grid", "texture coordinate", "vertex"};
    return Names[static_cast<size_t>(kind)];
}

void WriteDumpLine(std::ostream& out, DumpKind kind, const DumpLine& line) {
    fmt::memory_buffer text;
    const auto end = std::back_inserter(text);
    fmt::format_to(end, "Frame {}", line.requestId);
    if (kind == DumpKind::Grid) {
        fmt::format_to(end, ", {}, {}", line.header[0], line.header[1]);
    }
    for (size_t i = 0; i < line.values.size(); i++) {
        const bool isTwice = kind != DumpKind::Grid && i > 0 && i + 1 < line.values.size();
        for (int copy = 0; copy < (isTwice ? 2 : 1); copy++) {
            fmt::format_to(end, ", {:.4f}", line.values[i]);
        }
    }
    fmt::format_to(end, " \n");
    out.write(text.data(), static_cast<std::streamsize>(text.size()));
}

DumpLine ToDumpLine(uint64_t requestId, const IPEICAGridTransform& grid) {
    DumpLine line;
    line.requestId = requestId;
    line.header = {grid.dumpValue0, grid.dumpValue1};
    for (size_t i = 0; i < GridPoints; i++) {
        line.values.push_back(static_cast<double>(grid.gridTransformArray[i].x));
        line.values.push_back(static_cast<double>(grid.gridTransformArray[i].y));
    }
    return line;
}

IPEICAGridTransform ToGrid(const DumpLine& line) {
    IPEICAGridTransform grid{};
    grid.gridTransformEnable = 1;
    grid.dumpValue0 = line.header[0];
    grid.dumpValue1 = line.header[1];
    for (size_t i = 0; i < GridPoints; i++) {
        grid.gridTransformArray[i] = {static_cast<float>(line.values[2 * i]),
                                      static_cast<float>(line.values[2 * i + 1])};
    }
    return grid;
}

std::vector<cv::Point2d> MeshPoints(const DumpLine& line, DumpKind kind) {
    std::vector<cv::Point2d> points;
    for (size_t i = 0; i < line.values.size() / 2; i++) {
        const size_t column = i % GridColumns;
        const size_t row = i / GridColumns;
        const bool isBorder = column == 0 || column == GridColumns - 1 || row == 0 || row == GridRows - 1;
        if (kind != DumpKind::Grid || !isBorder) {
            points.emplace_back(line.values[2 * i], line.values[2 * i + 1]);
        }
    }
    return points;
}

std::optional<BadValue> FindBadValue(const DumpLine& line) {
    constexpr double MaxCoordinate = 65536;
    const auto isBad = [](double value) { return !(std::abs(value) <= MaxCoordinate); };  // NaN is
    const auto bad = std::find_if(line.values.begin(), line.values.end(), isBad);
    if (bad == line.values.end()) {
        return std::nullopt;
    }
    const auto more = std::count_if(bad + 1, line.values.end(), isBad);
    return BadValue{line.columns[static_cast<size_t>(bad - line.values.begin())], std::isfinite(*bad),
                    fmt::format("expected a coordinate within {} pixels, got {:.4f}{}", MaxCoordinate, *bad,
                                more == 0 ? "" : fmt::format(" and {} more such in the line", more))};
}

}  // namespace desk
