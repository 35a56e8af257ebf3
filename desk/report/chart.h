#pragma once

#include <opencv2/core.hpp>
#include <string>
#include <utility>
#include <vector>

#include "desk/warp/warp_map.h"

namespace desk {

/// A text as it stands in HTML and SVG.
std::string Escaped(const std::string& text);

/// One value per frame; a value that is not finite leaves a gap.
struct ChartLine {
    std::string name;
    std::vector<double> values;
    bool isLimit = false;  ///< drawn in grey
};

struct Chart {
    std::string title;
    std::string unit;  ///< of the values
    std::vector<ChartLine> lines;
};

/// The lines over the frames, from 0, as SVG, which may stand in a page or be a file.
std::string Draw(const Chart& chart);

/// Likewise what frames use of the margin on some of the sides, and the margins that there are, with their
/// names: pixels on a side.
std::string DrawMargin(const std::string& title, const std::string& unit, const std::vector<Side>& sides,
                       const std::vector<SideUse>& used,
                       const std::vector<std::pair<std::string, double>>& margins);

/// Likewise the mesh of the vertices, row by row, and the frame that it reads from, a rectangle about 0; an
/// empty one is left out. What is right and down in the values is so in the picture.
std::string DrawMesh(const std::string& title, const std::vector<cv::Point2d>& vertices, size_t columns,
                     cv::Size2d frame);

}  // namespace desk
