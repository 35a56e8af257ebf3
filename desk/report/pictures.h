#pragma once

#include <opencv2/core.hpp>
#include <string>

namespace desk {

/// Two 8-bit BGR pictures of one size side by side, smaller where they are large, each over its caption, over
/// a line with the credit. The texts are ASCII; they are made small enough to fit.
cv::Mat BeforeAfter(const cv::Mat& before, const std::string& beforeCaption, const cv::Mat& after,
                    const std::string& afterCaption, const std::string& credit);

/// The bytes of a picture file of the kind that the extension names, such as ".png".
std::string Encoded(const cv::Mat& picture, const std::string& extension);

}  // namespace desk
