#pragma once

#include <opencv2/core.hpp>
#include <string>

namespace desk {

/// The mean of all pictures of a clip: what stands still stays sharp, what moves blurs.
class LongExposure {
public:
    /// The next picture, 8-bit BGR, of one size.
    void Add(const cv::Mat& bgr);

    /// The mean of what was added, 8-bit BGR; at least one picture was.
    cv::Mat Mean() const;

private:
    cv::Mat sum_;
    int pictures_ = 0;
};

/// One half of a before/after picture.
struct CaptionedPicture {
    cv::Mat picture;  ///< 8-bit BGR
    std::string caption;
};

/// Both pictures at half size side by side, each over its caption, over a line with the credit.
/// Captions and credit are ASCII; they are made small enough to fit.
cv::Mat BeforeAfter(const CaptionedPicture& before, const CaptionedPicture& after, const std::string& credit);

}  // namespace desk
