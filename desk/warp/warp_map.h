#pragma once

#include <functional>
#include <opencv2/core.hpp>
#include <vector>

#include "desk/warp/grid_size.h"
#include "host/lumnoderequest.h"

namespace desk {

/// The warp grid with which the node shows input position inputOf(q) at output position q, both relative to
/// the centre of their picture. Enabled; the two dump values are the input's width and height.
IPEICAGridTransform MakeGrid(cv::Size input, const std::function<cv::Point2d(cv::Point2d)>& inputOf);

enum Side { Left, Top, Right, Bottom };
constexpr std::array<const char*, 4> SideNames = {"left", "top", "right", "bottom"};

/// Pixels of the input that a frame's grid reads beyond the output's window, by Side; negative where the
/// window is not used up to its edge.
using SideUse = std::array<double, 4>;

/// What the node's mesh shows where, worked out anew in double precision from the geometry itself and not
/// from the node's arithmetic. Positions are pixel indexes, fractions included, about the first pixel's
/// centre.
class WarpMap {
public:
    /// Sizes in pixels. The grid is taken as enabled.
    WarpMap(const IPEICAGridTransform& grid, cv::Size input, cv::Size output);

    /// The input position that the output position shows: linear within each of the two triangles of a cell.
    /// Outside the mesh the outermost triangles go on.
    cv::Point2d At(cv::Point2d output) const;

    /// Whether the mesh covers the output position, `border` output pixels inside its edge or more.
    bool Covers(cv::Point2d output, double border) const;

    /// How far what is shown lies outside the middle of the input, which has the output's size.
    SideUse MarginUse() const;

private:
    cv::Point2d MeshPosition(cv::Point2d output) const;

    cv::Size input_;
    cv::Size output_;
    cv::Mat_<cv::Point2d> vertices_;  ///< input positions
};

/// The cells, by column and row, with a triangle of no or negative area: what is shown there is folded over.
/// The vertices lie row by row; those after the last whole row are left out.
std::vector<cv::Point> FoldedCells(const std::vector<cv::Point2d>& vertices, int columns);

}  // namespace desk
