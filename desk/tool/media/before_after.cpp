#include "desk/tool/media/before_after.h"

#include <algorithm>
#include <opencv2/imgproc.hpp>
#include <vector>

namespace desk {
namespace {

const cv::Scalar BarColour(32, 32, 32);

/// A bar of the given width with the text in its middle.
cv::Mat TextBar(const std::string& text, int width, double scale, const cv::Scalar& colour) {
    constexpr int Font = cv::FONT_HERSHEY_SIMPLEX;
    constexpr double Padding = 0.94;
    int baseline = 0;
    cv::Size size = cv::getTextSize(text, Font, scale, 1, &baseline);
    const double fit = std::min(1.0, Padding * width / std::max(size.width, 1));
    const int height = 2 * (size.height + baseline);
    size = cv::getTextSize(text, Font, scale * fit, 1, &baseline);
    cv::Mat bar(height, width, CV_8UC3, BarColour);
    cv::putText(bar, text, {(width - size.width) / 2, (height + size.height) / 2}, Font, scale * fit, colour,
                1, cv::LINE_AA);
    return bar;
}

cv::Mat Half(const CaptionedPicture& half) {
    cv::Mat small;
    cv::resize(half.picture, small, half.picture.size() / 2, 0, 0, cv::INTER_AREA);
    cv::Mat whole;
    cv::vconcat(small, TextBar(half.caption, small.cols, 0.7, cv::Scalar::all(255)), whole);
    return whole;
}

}  // namespace

void LongExposure::Add(const cv::Mat& bgr) {
    if (sum_.empty()) {
        sum_ = cv::Mat::zeros(bgr.size(), CV_32FC3);
    }
    cv::accumulate(bgr, sum_);
    pictures_++;
}

cv::Mat LongExposure::Mean() const {
    cv::Mat mean;
    sum_.convertTo(mean, CV_8UC3, 1.0 / pictures_);
    return mean;
}

cv::Mat BeforeAfter(const CaptionedPicture& before, const CaptionedPicture& after,
                    const std::string& credit) {
    const cv::Mat left = Half(before);
    const cv::Mat right = Half(after);
    const cv::Mat gap(left.rows, 4, CV_8UC3, BarColour);
    cv::Mat row;
    cv::hconcat(std::vector<cv::Mat>{left, gap, right}, row);
    cv::Mat whole;
    cv::vconcat(row, TextBar(credit, row.cols, 0.5, cv::Scalar::all(200)), whole);
    return whole;
}

}  // namespace desk
