#include "desk/report/pictures.h"

#include <algorithm>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <vector>

namespace desk {
namespace {

const cv::Scalar BarColour(32, 32, 32);

/// The picture over a bar of the same width with the text in it.
cv::Mat Captioned(const cv::Mat& picture, const std::string& text) {
    constexpr int Font = cv::FONT_HERSHEY_SIMPLEX;
    constexpr double Size = 0.6;
    constexpr int BarHeight = 36;
    constexpr int Border = 12;
    const int width = std::max(cv::getTextSize(text, Font, Size, 1, nullptr).width, 1);
    const double fit = std::min(1.0, static_cast<double>(picture.cols - 2 * Border) / width);
    cv::Mat whole;
    cv::copyMakeBorder(picture, whole, 0, BarHeight, 0, 0, cv::BORDER_CONSTANT, BarColour);
    cv::putText(whole, text, {Border, whole.rows - Border}, Font, Size * fit, cv::Scalar::all(230), 1,
                cv::LINE_AA);
    return whole;
}

}  // namespace

cv::Mat BeforeAfter(const cv::Mat& before, const std::string& beforeCaption, const cv::Mat& after,
                    const std::string& afterCaption, const std::string& credit) {
    constexpr double MinWidth = 480;  // the captions need it
    const double scale = std::max(0.5, MinWidth / before.cols);
    cv::Mat left;
    cv::Mat right;
    cv::resize(before, left, {}, scale, scale, cv::INTER_AREA);
    cv::resize(after, right, {}, scale, scale, cv::INTER_AREA);
    cv::Mat row;
    cv::hconcat(Captioned(left, beforeCaption), Captioned(right, afterCaption), row);
    return credit.empty() ? row : Captioned(row, credit);
}

std::string Encoded(const cv::Mat& picture, const std::string& extension) {
    std::vector<unsigned char> bytes;
    cv::imencode(extension, picture, bytes, {cv::IMWRITE_JPEG_QUALITY, 90});
    return {bytes.begin(), bytes.end()};
}

}  // namespace desk
