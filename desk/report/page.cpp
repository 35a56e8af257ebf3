#include "desk/report/page.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "desk/output/output.h"
#include "desk/report/chart.h"

extern "C" {
#include <libavutil/base64.h>
}

namespace desk {
namespace {

constexpr const char* Style =
    "body{font-family:sans-serif;max-width:1000px;margin:1.5em auto;padding:0 1em;color:#222}"
    "h1{font-size:1.4em}h2{font-size:1.1em;margin-top:1.6em}"
    "table{border-collapse:collapse}td,th{border:1px solid #ccc;padding:.25em .7em;text-align:left}"
    "img{max-width:100%}.bad{color:#b00020}";

/// A chart, and where in the frames' objects its lines are.
struct ChartRow {
    const char* title;
    const char* unit;
    std::vector<std::pair<const char*, const char*>> lines;  ///< name and JSON pointer
    const char* limit = nullptr;                             ///< JSON pointer in the results
};

/// A part of the page: the results' entries that are tables, and the charts.
struct SectionRow {
    const char* title;
    std::vector<const char*> tables;
    std::vector<ChartRow> charts;
};

const SectionRow Sections[] = {
    {"Camera",
     {},
     {{"camera path, across", "input pixels", {{"before", "/camera_before/x"}, {"after", "/camera_after/x"}}},
      {"camera path, down", "input pixels", {{"before", "/camera_before/y"}, {"after", "/camera_after/y"}}},
      {"camera roll", "radians", {{"before", "/camera_before/roll"}, {"after", "/camera_after/roll"}}}}},
    {"Motion between frames",
     {"motion_px_rms"},
     {{"way of the camera from frame to frame",
       "input pixels",
       {{"before", "/camera_before/step"}, {"after", "/camera_after/step"}}}}},
    {"Margin",
     {"margin_use"},
     {{"horizontal margin used on each side",
       "input pixels",
       {{"left", "/margin_used/left"}, {"right", "/margin_used/right"}},
       "/margin_use/horizontal/pixels_on_a_side"},
      {"vertical margin used on each side",
       "input pixels",
       {{"top", "/margin_used/top"}, {"bottom", "/margin_used/bottom"}},
       "/margin_use/vertical/pixels_on_a_side"}}},
    {"Quality", {"psnr_db", "planes"}, {}},
    {"Time per frame", {"stage_ms"}, {}},
    {"Counters", {"counters"}, {}},
};

std::string Escaped(const std::string& text) {
    std::string escaped;
    for (const char c : text) {
        escaped += c == '<' ? "&lt;" : c == '&' ? "&amp;" : std::string(1, c);
    }
    return escaped;
}

std::string Text(const Json& value) {
    return value.is_string()         ? Escaped(value.get<std::string>())
           : value.is_number_float() ? fmt::format("{:.5g}", value.get<double>())
                                     : value.dump();
}

std::string Spaced(std::string name) {
    std::replace(name.begin(), name.end(), '_', ' ');
    return name;
}

/// An object as a table: a row for every entry, with a column for each value of an entry that is an object.
std::string Table(const Json& object) {
    std::string html;
    const auto row = [&html](const std::string& name, const Json& cells, bool isHead) {
        html += fmt::format("<tr><th>{}</th>", Spaced(name));
        for (const auto& [key, cell] : cells.items()) {
            html += isHead ? fmt::format("<th>{}</th>", Spaced(key)) : fmt::format("<td>{}</td>", Text(cell));
        }
        html += "</tr>\n";
    };
    if (!object.empty() && object.begin()->is_object()) {
        row("", *object.begin(), true);
    }
    for (const auto& [name, entry] : object.items()) {
        row(name, entry.is_object() ? entry : Json::array({entry}), false);
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

/// Nothing when no frame has a value for it.
std::string ChartFigure(const ChartRow& row, const Json& json) {
    Chart chart{row.title, row.unit, {}};
    bool isKnown = false;
    for (const auto& [name, pointer] : row.lines) {
        ChartLine line{name, {}};
        for (const Json& frame : json["frames"]) {
            line.values.push_back(frame.value(Json::json_pointer(pointer), std::nan("")));
            isKnown = isKnown || std::isfinite(line.values.back());
        }
        chart.lines.push_back(std::move(line));
    }
    if (row.limit != nullptr && isKnown) {
        const auto limit = json.at(Json::json_pointer(row.limit)).get<double>();
        chart.lines.push_back({"negotiated", std::vector<double>(json["frames"].size(), limit), true});
    }
    return isKnown ? Image(Draw(chart), ".png") : "";
}

std::string Section(const std::string& title, const std::string& content) {
    return content.empty() ? "" : fmt::format("<h2>{}</h2>\n{}", title, content);
}

std::string Page(const RunResults& results, const Json& json) {
    Json run = Json::object();
    std::string sections;
    for (const SectionRow& row : Sections) {
        std::string content;
        for (const char* table : row.tables) {
            content += Table(json.value(table, Json::object()));
        }
        for (const ChartRow& chart : row.charts) {
            content += ChartFigure(chart, json);
        }
        sections += Section(row.title, content);
    }
    std::string findings;
    for (const char* list : {"findings", "missed_limits"}) {
        for (const Json& text : json[list]) {
            findings += "<li class='bad'>" + Text(text) + "</li>\n";
        }
    }
    for (const auto& [name, value] : json.items()) {
        if (!value.is_structured() && value != "") {
            run[name] = value;
        } else if (value.contains("width")) {
            run[name] = value["width"].dump() + " x " + value["height"].dump();
        }
    }
    const std::string title = fmt::format("dewarp-desk {} {}", Text(json["command"]), Text(json["clip"]));
    return fmt::format(
               "<!DOCTYPE html>\n<html lang='en'><head><meta charset='utf-8'><title>{0}</title>"
               "<style>{1}</style></head>\n<body>\n<h1>{0}</h1>\n",
               title, Style) +
           Table(run) + Section("Before and after", Image(results.beforeAfter, ".jpg")) +
           Section("Errors in the worst frame", Image(results.heatMap, ".png")) + sections +
           Section("Findings", findings.empty() ? "<p>The node kept all rules of its host.</p>\n"
                                                : "<ul>\n" + findings + "</ul>\n") +
           "</body></html>\n";
}

}  // namespace

void PrepareReport(const std::filesystem::path& folder, bool overwrite) {
    MakeFolder(folder);
    for (const char* name : {"report.html", "report.json", "before_after.jpg"}) {
        RequireFree(folder / name, overwrite);
    }
}

void WriteReport(const RunResults& results, const std::filesystem::path& folder, bool overwrite) {
    const Json json = ToJson(results);
    WriteWhole(folder / "report.html", Page(results, json), overwrite);
    WriteJson(json, (folder / "report.json").string(), overwrite);
    if (!results.beforeAfter.empty()) {
        WriteWhole(folder / "before_after.jpg", Encoded(results.beforeAfter, ".jpg"), overwrite);
    }
}

}  // namespace desk
