#include "desk/dump/dump_line.h"

#include <fmt/format.h>

#include <ostream>

namespace desk {

const char* NameOf(DumpKind kind) {
    constexpr const char* Names[] = {"grid", "texture coordinate", "vertex"};
    return Names[static_cast<size_t>(kind)];
}

void WriteGridLine(std::ostream& out, uint64_t requestId, const IPEICAGridTransform& grid) {
    out << fmt::format("Frame {}, {}, {}", requestId, grid.dumpValue0, grid.dumpValue1);
    for (size_t i = 0; i < GridPoints; i++) {
        const GridPoint& point = grid.gridTransformArray[i];
        out << fmt::format(", {:.4f}, {:.4f}", static_cast<double>(point.x), static_cast<double>(point.y));
    }
    out << " \n";
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

}  // namespace desk
