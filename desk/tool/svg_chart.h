#pragma once

#include <opencv2/core.hpp>
#include <string>
#include <vector>

namespace desk {

/// One value per frame; a value that is not finite leaves a gap.
struct ChartLine {
    std::string name;
    std::vector<double> values;
    bool isLimit = false;  ///< drawn dashed; then it has a value
};

struct Chart {
    std::string title;
    std::string unit;  ///< of the values
    std::vector<ChartLine> lines;
};

/// The lines over the frames, from 0, as a picture that stands alone or in a page.
std::string ToSvg(const Chart& chart);

/// The mesh of the vertices, row by row, and the frame that it reads from, a rectangle about 0; an empty one
/// is left out. What is right and down in the values is so in the picture.
std::string MeshSvg(const std::string& title, const std::vector<cv::Point2d>& vertices, int columns,
                    cv::Size2d frame);

/// Text in which nothing is markup.
std::string EscapeMarkup(const std::string& text);

}  // namespace desk
