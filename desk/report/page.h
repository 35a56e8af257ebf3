#pragma once

#include <array>
#include <filesystem>
#include <opencv2/core.hpp>
#include <string>

#include "desk/report/results.h"

namespace desk {

/// What a report's folder holds.
constexpr std::array<const char*, 3> ReportFiles = {"report.html", "report.json", "before_after.jpg"};

/// Two 8-bit BGR pictures of one size side by side, smaller where they are large, each over its caption, over
/// a line with the credit. The texts are ASCII; they are made small enough to fit.
cv::Mat BeforeAfter(const cv::Mat& before, const std::string& beforeCaption, const cv::Mat& after,
                    const std::string& afterCaption, const std::string& credit);

/// The bytes of a picture file of the kind that the extension names, such as ".png".
std::string Encoded(const cv::Mat& picture, const std::string& extension);

/// Writes the results as a page that needs no other file, as JSON, and the picture before and after, into
/// the folder, which is there. Throws UsageError when one of them is there and may not be overwritten;
/// std::runtime_error.
void WriteReport(const RunResults& results, const std::filesystem::path& folder, bool overwrite);

}  // namespace desk
