#pragma once

#include <opencv2/core.hpp>
#include <string>
#include <vector>

namespace desk {

using TableRow = std::vector<std::string>;

/// A table of plain texts; the first row names the columns.
std::string Table(const std::vector<TableRow>& rows);

/// A heading over its content; nothing without content.
std::string Section(const std::string& title, const std::string& content);

/// An 8-bit picture with its caption, the picture's bytes in the page itself; nothing for an empty picture.
std::string Figure(const cv::Mat& picture, const std::string& caption);

}  // namespace desk
