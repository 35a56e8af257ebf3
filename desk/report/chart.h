#pragma once

#include <opencv2/core.hpp>
#include <string>
#include <vector>

namespace desk {

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

/// The lines over the frames, from 0, as an 8-bit BGR picture. Texts are ASCII.
cv::Mat Draw(const Chart& chart);

/// The mesh of the vertices, row by row, and the frame that it reads from, a rectangle about 0; an empty one
/// is left out. What is right and down in the values is so in the picture, which is 8-bit BGR.
cv::Mat DrawMesh(const std::string& title, const std::vector<cv::Point2d>& vertices, int columns,
                 cv::Size2d frame);

/// The bytes of a picture file of the kind that the extension names, such as ".png".
std::string Encoded(const cv::Mat& picture, const std::string& extension);

}  // namespace desk
