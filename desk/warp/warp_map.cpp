#include "desk/warp/warp_map.h"

#include <algorithm>
#include <cmath>

namespace desk {

IPEICAGridTransform MakeGrid(cv::Size input, const std::function<cv::Point2d(cv::Point2d)>& inputOf) {
    IPEICAGridTransform grid{};
    grid.gridTransformEnable = 1;
    grid.dumpValue0 = static_cast<uint32_t>(input.width);
    grid.dumpValue1 = static_cast<uint32_t>(input.height);
    GridPoint* point = grid.gridTransformArray;
    for (int row = -1; row <= MeshRows; row++) {
        for (int column = -1; column <= MeshColumns; column++) {
            // The mesh spans the input's size about the output's centre and lies half a texel to the upper
            // left; a grid value g samples the input at index position g - 1/2 from its centre.
            const cv::Point2d q(input.width * (static_cast<double>(column) / CellColumns - 0.5) - 0.5,
                                input.height * (static_cast<double>(row) / CellRows - 0.5) - 0.5);
            const cv::Point2d p = inputOf(q);
            *point++ = {static_cast<float>(p.x + 0.5), static_cast<float>(p.y + 0.5)};
        }
    }
    return grid;
}

WarpMap::WarpMap(const IPEICAGridTransform& grid, cv::Size input, cv::Size output)
    : input_(input), output_(output), vertices_(MeshRows, MeshColumns) {
    // A grid value g samples the input at index g - 1/2 from the input's centre.
    const cv::Point2d centre((input.width - 1) / 2.0 - 0.5, (input.height - 1) / 2.0 - 0.5);
    for (int row = 0; row < MeshRows; row++) {
        for (int column = 0; column < MeshColumns; column++) {
            const GridPoint& point = grid.gridTransformArray[(row + 1) * GridColumns + column + 1];
            vertices_(row, column) = cv::Point2d(cv::Point2f(point.x, point.y)) + centre;
        }
    }
}

/// In cells from the mesh's first vertex. The mesh has the input's size, lies about the output's centre, and
/// half a pixel towards the first pixel.
cv::Point2d WarpMap::MeshPosition(cv::Point2d output) const {
    const cv::Point2d q(output.x - (output_.width - 1) / 2.0, output.y - (output_.height - 1) / 2.0);
    return {CellColumns * ((q.x + 0.5) / input_.width + 0.5), CellRows * ((q.y + 0.5) / input_.height + 0.5)};
}

cv::Point2d WarpMap::At(cv::Point2d output) const {
    const cv::Point2d mesh = MeshPosition(output);
    const int column = std::clamp(static_cast<int>(std::floor(mesh.x)), 0, CellColumns - 1);
    const int row = std::clamp(static_cast<int>(std::floor(mesh.y)), 0, CellRows - 1);
    const double x = mesh.x - column;
    const double y = mesh.y - row;
    // The triangles meet on the line between the second and the third of these.
    const cv::Point2d& first = vertices_(row, column);
    const cv::Point2d& second = vertices_(row, column + 1);
    const cv::Point2d& third = vertices_(row + 1, column);
    const cv::Point2d& last = vertices_(row + 1, column + 1);
    return x + y <= 1 ? first + x * (second - first) + y * (third - first)
                      : last + (1 - x) * (third - last) + (1 - y) * (second - last);
}

bool WarpMap::Covers(cv::Point2d output, double border) const {
    const cv::Point2d mesh = MeshPosition(output);
    const double x = border * CellColumns / input_.width;
    const double y = border * CellRows / input_.height;
    // As everywhere in GL, what lies exactly on the edge belongs to the side with the larger numbers.
    return mesh.x >= x && mesh.x < CellColumns - x && mesh.y >= y && mesh.y < CellRows - y;
}

SideUse WarpMap::MarginUse() const {
    const cv::Point2d first((input_.width - output_.width) / 2.0, (input_.height - output_.height) / 2.0);
    const cv::Point2d last = first + cv::Point2d(output_.width - 1, output_.height - 1);
    cv::Point2d least(input_);
    cv::Point2d most(-least);
    const auto add = [&](int x, int y) {
        const cv::Point2d p = At(cv::Point2d(x, y));
        least = {std::min(least.x, p.x), std::min(least.y, p.y)};
        most = {std::max(most.x, p.x), std::max(most.y, p.y)};
    };
    // What an unfolded mesh shows reaches farthest along the output's edges.
    for (int x = 0; x < output_.width; x++) {
        add(x, 0);
        add(x, output_.height - 1);
    }
    for (int y = 0; y < output_.height; y++) {
        add(0, y);
        add(output_.width - 1, y);
    }
    return {first.x - least.x, first.y - least.y, most.x - last.x, most.y - last.y};
}

std::vector<cv::Point> FoldedCells(const std::vector<cv::Point2d>& vertices, int columns) {
    std::vector<cv::Point> folded;
    const int rows = static_cast<int>(vertices.size()) / columns;
    for (int row = 0; row + 1 < rows; row++) {
        for (int column = 0; column + 1 < columns; column++) {
            const cv::Point2d* upper = vertices.data() + row * columns + column;
            const cv::Point2d* lower = upper + columns;
            const double firstArea = (upper[1] - upper[0]).cross(lower[0] - upper[0]);
            const double lastArea = (lower[0] - lower[1]).cross(upper[1] - lower[1]);
            if (std::min(firstArea, lastArea) <= 0) {
                folded.emplace_back(column, row);
            }
        }
    }
    return folded;
}

}  // namespace desk
