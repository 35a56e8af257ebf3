#include "desk/tool/html_parts.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "desk/tool/svg_chart.h"

namespace desk {
namespace {

std::string Base64(const std::vector<uint8_t>& bytes) {
    constexpr char Digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (size_t i = 0; i < bytes.size(); i += 3) {
        const size_t count = std::min<size_t>(3, bytes.size() - i);
        uint32_t group = 0;
        for (size_t k = 0; k < 3; k++) {
            group = group << 8U | (k < count ? bytes[i + k] : 0U);
        }
        for (size_t k = 0; k < 4; k++) {
            text += k <= count ? Digits[group >> (18 - 6 * k) & 63U] : '=';
        }
    }
    return text;
}

}  // namespace

std::string Table(const std::vector<TableRow>& rows) {
    std::string html = "<table>\n";
    for (const TableRow& row : rows) {
        const char* tag = &row == &rows.front() ? "th" : "td";
        html += "<tr>";
        for (const std::string& cell : row) {
            html += fmt::format("<{0}>{1}</{0}>", tag, EscapeMarkup(cell));
        }
        html += "</tr>\n";
    }
    return html + "</table>\n";
}

std::string Section(const std::string& title, const std::string& content) {
    return content.empty() ? "" : fmt::format("<h2>{}</h2>\n{}", title, content);
}

std::string Figure(const cv::Mat& picture, const std::string& caption) {
    constexpr int MostWidth = 960;
    if (picture.empty()) {
        return "";
    }
    cv::Mat shown = picture;
    if (picture.cols > MostWidth) {
        const double scale = static_cast<double>(MostWidth) / picture.cols;
        cv::resize(picture, shown, {}, scale, scale, cv::INTER_AREA);
    }
    std::vector<uint8_t> jpeg;
    cv::imencode(".jpg", shown, jpeg, {cv::IMWRITE_JPEG_QUALITY, 88});
    return fmt::format(
        "<figure><img alt='{0}' src='data:image/jpeg;base64,{1}'><figcaption>{0}</figcaption></figure>\n",
        EscapeMarkup(caption), Base64(jpeg));
}

}  // namespace desk
