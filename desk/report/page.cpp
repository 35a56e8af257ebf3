#include "desk/report/page.h"

#include <fmt/format.h>

#include <algorithm>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "desk/output/output.h"
#include "desk/report/chart.h"

extern "C" {
#include <libavutil/base64.h>
}

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

constexpr const char* Style =
    "body{font-family:sans-serif;max-width:1000px;margin:1.5em auto;padding:0 1em;color:#222}"
    "h1{font-size:1.4em}h2{font-size:1.1em;margin-top:1.6em}"
    "table{border-collapse:collapse}td,th{border:1px solid #ccc;padding:.25em .7em;text-align:left}"
    "img{max-width:100%}.bad{color:#b00020}";

/// The numbers of a size have an x between them.
std::string Text(const Json& value) {
    std::string size;
    for (const Json& number : value.is_object() ? value : Json::object()) {
        size += (size.empty() ? "" : " x ") + number.dump();
    }
    return value.is_object()         ? size
           : value.is_string()       ? Escaped(value.get<std::string>())
           : value.is_number_float() ? fmt::format("{:.5g}", value.get<double>())
                                     : value.dump();
}

std::string Spaced(std::string name) {
    std::replace(name.begin(), name.end(), '_', ' ');
    return name;
}

/// A part of the results as a table: a row for every entry that is not empty, with a column for each of its
/// values when the entries are objects.
std::string Table(const Json& object) {
    std::string html;
    const auto row = [&html](const std::string& name, const Json& cells, bool isHead) {
        html += fmt::format("<tr><th>{}</th>", Spaced(name));
        for (const auto& [key, cell] : cells.items()) {
            html += isHead ? fmt::format("<th>{}</th>", Spaced(key)) : fmt::format("<td>{}</td>", Text(cell));
        }
        html += "</tr>\n";
    };
    const bool hasColumns = !object.empty() && object.begin()->is_object();
    if (hasColumns) {
        row("", *object.begin(), true);
    }
    for (const auto& [name, entry] : object.items()) {
        if (entry != "") {
            row(name, hasColumns ? entry : Json::array({entry}), false);
        }
    }
    return html.empty() ? "" : "<table>\n" + html + "</table>\n";
}

/// Nothing for an empty picture. Its bytes stand in the page itself, as a file of the kind that the extension
/// names.
std::string Image(const cv::Mat& picture, const std::string& extension) {
    if (picture.empty()) {
        return "";
    }
    const std::string bytes = Encoded(picture, extension);
    std::string text(AV_BASE64_SIZE(bytes.size()), '\0');
    av_base64_encode(text.data(), static_cast<int>(text.size()),
                     reinterpret_cast<const uint8_t*>(bytes.data()), static_cast<int>(bytes.size()));
    text.pop_back();  // the end of a C string
    return fmt::format("<img alt='' src='data:image/{};base64,{}'>\n", extension.substr(1), text);
}

/// Nothing when the cameras are not known.
std::string CameraChart(const RunResults& results, const char* title, const char* unit,
                        double CameraResult::*value) {
    Chart chart{title, unit, {{"before", {}}, {"after", {}}}};
    for (const FrameResult& frame : results.frames) {
        if (!frame.camera) {
            return "";
        }
        chart.lines[0].values.push_back(frame.camera->before.*value);
        chart.lines[1].values.push_back(frame.camera->after.*value);
    }
    return Draw(chart);
}

std::string MarginCharts(const RunResults& results) {
    std::vector<SideUse> used;
    for (const FrameResult& frame : results.frames) {
        used.push_back(frame.marginUsed);
    }
    const cv::Size margin = results.facts.inputSize - results.facts.outputSize;
    return DrawMargin("horizontal margin used on each side", "input pixels", {Left, Right}, used,
                      {{"negotiated", margin.width / 2.0}}) +
           DrawMargin("vertical margin used on each side", "input pixels", {Top, Bottom}, used,
                      {{"negotiated", margin.height / 2.0}});
}

std::string Section(const std::string& title, const std::string& content) {
    return content.empty() ? "" : fmt::format("<h2>{}</h2>\n{}", title, content);
}

std::string Findings(const RunResults& results) {
    std::string list;
    for (const auto* sentences : {&results.findings, &results.missedLimits}) {
        for (const std::string& sentence : *sentences) {
            list += "<li class='bad'>" + Escaped(sentence) + "</li>\n";
        }
    }
    return list.empty() ? "<p>The node kept all rules of its host.</p>\n" : "<ul>\n" + list + "</ul>\n";
}

std::string Page(const RunResults& results) {
    const std::string title =
        Escaped(fmt::format("dewarp-desk {} {}", results.facts.command, results.facts.clip));
    const Json all = ToJson(results);
    const auto part = [&all](const char* name) { return Table(all.value(name, Json::object())); };
    Json run = Json::object();  // what is one value, or a size
    for (const auto& [name, value] : all.items()) {
        if (name != "schema" && (value.is_primitive() || value.contains("width"))) {
            run[name] = value;
        }
    }
    return fmt::format(
               "<!DOCTYPE html>\n<html lang='en'><head><meta charset='utf-8'><title>{0}</title>"
               "<style>{1}</style></head>\n<body>\n<h1>{0}</h1>\n",
               title, Style) +
           Table(run) + Section("Before and after", Image(results.beforeAfter, ".jpg")) +
           Section("Errors in the worst frame", Image(results.heatMap, ".png")) +
           Section("Camera", CameraChart(results, "camera path, across", "input pixels", &CameraResult::x) +
                                 CameraChart(results, "camera path, down", "input pixels", &CameraResult::y) +
                                 CameraChart(results, "camera roll", "radians", &CameraResult::roll)) +
           Section("Motion between frames",
                   part("motion_px_rms") + CameraChart(results, "way of the camera from frame to frame",
                                                       "input pixels", &CameraResult::step)) +
           Section("Margin", part("margin_use") + MarginCharts(results)) +
           Section("Quality", part("psnr_db") + part("planes")) +
           Section("Time per frame", part("stage_ms")) + Section("Counters", part("counters")) +
           Section("Findings", Findings(results)) + "</body></html>\n";
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

void WriteReport(const RunResults& results, const std::filesystem::path& folder, bool overwrite) {
    WriteWhole(folder / ReportFiles[0], Page(results), overwrite);
    WriteJson(ToJson(results), (folder / ReportFiles[1]).string(), overwrite);
    if (!results.beforeAfter.empty()) {
        WriteWhole(folder / ReportFiles[2], Encoded(results.beforeAfter, ".jpg"), overwrite);
    }
}

}  // namespace desk
