#include "desk/tool/run_report.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <numeric>
#include <stdexcept>
#include <system_error>

#include "desk/demo/call_times.h"
#include "desk/tool/html_parts.h"
#include "desk/tool/options.h"
#include "desk/tool/output_place.h"
#include "desk/tool/svg_chart.h"

namespace desk {
namespace {

constexpr const char* PageName = "report.html";
constexpr const char* JsonName = "report.json";

constexpr const char* Style =
    "body{font-family:sans-serif;max-width:1000px;margin:1.5em auto;padding:0 1em;color:#222}"
    "h1{font-size:1.4em}h2{font-size:1.1em;margin-top:1.6em}"
    "table{border-collapse:collapse}td,th{border:1px solid #ccc;padding:.25em .7em;text-align:right}"
    "td:first-child,th:first-child{text-align:left}"
    ".pair{display:flex;gap:8px}figure{margin:0;flex:1}img,svg{max-width:100%;height:auto}"
    ".bad{color:#b00020}";

/// One value of every frame.
std::vector<double> OfFrames(const RunResults& results,
                             const std::function<double(const FrameRecord&)>& value) {
    std::vector<double> values;
    for (const FrameRecord& frame : results.frames) {
        values.push_back(value(frame));
    }
    return values;
}

std::string RunSection(const RunResults& results) {
    const Size in = results.sizes.input;
    const Size out = results.sizes.output;
    const double crop = 100.0 * out.width * out.height / (static_cast<double>(in.width) * in.height);
    return Table(
        {{"what", "value"},
         {"clip", results.clip},
         {"output", results.output.empty() ? "none" : results.output},
         {"frames", fmt::format("{} at {:.3f} per second", results.frames.size(), results.framesPerSecond)},
         {"node", fmt::format("{}, {}", results.library, NameOf(results.variant))},
         {"GL renderer", results.renderer},
         {"input of the node", fmt::format("{} x {}", in.width, in.height)},
         {"output of the node", fmt::format("{} x {}", out.width, out.height)},
         {"part of the input that the output shows", fmt::format("{:.1f} %", crop)}});
}

std::string PictureSection(const RunResults& results) {
    if (results.before.empty()) {
        return "";
    }
    return "<p>The mean of all frames: what stands still is sharp, what moves is blurred.</p>\n<div "
           "class='pair'>" +
           Figure(results.before, "before") + Figure(results.after, "after") + "</div>\n";
}

std::string PathSection(const RunResults& results) {
    const bool isKnown = std::any_of(results.frames.begin(), results.frames.end(),
                                     [](const FrameRecord& frame) { return frame.before && frame.after; });
    if (!isKnown) {
        return "";
    }
    constexpr double DegreesPerRadian = 57.29577951308232;
    const struct {
        const char* title;
        const char* unit;
        double (*value)(const CameraPlace&);
    } charts[] = {
        {"camera path, across", "input pixels", [](const CameraPlace& place) { return place.shift.real(); }},
        {"camera path, down", "input pixels", [](const CameraPlace& place) { return place.shift.imag(); }},
        {"camera roll", "degrees",
         [](const CameraPlace& place) { return place.turn.imag() * DegreesPerRadian; }},
    };
    std::string html;
    for (const auto& chart : charts) {
        const auto line = [&](const std::optional<CameraPlace> FrameRecord::*place) {
            return OfFrames(results, [&](const FrameRecord& frame) {
                return frame.*place ? chart.value(*(frame.*place)) : std::nan("");
            });
        };
        html += ToSvg({chart.title,
                       chart.unit,
                       {{"before", line(&FrameRecord::before)}, {"after", line(&FrameRecord::after)}}});
    }
    return html;
}

/// Way of the camera from each frame to the next; a gap where it is not known.
std::vector<double> Steps(const RunResults& results, const std::optional<CameraPlace> FrameRecord::*place) {
    std::vector<double> steps;
    const std::optional<CameraPlace>* last = nullptr;
    for (const FrameRecord& frame : results.frames) {
        const std::optional<CameraPlace>& now = frame.*place;
        const bool isKnown = last != nullptr && *last && now;
        steps.push_back(isKnown ? std::abs(now->shift - (*last)->shift) : std::nan(""));
        last = &now;
    }
    return steps;
}

std::string MotionSection(const RunResults& results) {
    std::string html;
    if (results.motionBefore && results.motionAfter) {
        html += fmt::format(
            "<p>Measured on the pictures: {:.3f} pixels RMS from frame to frame before, {:.3f} after.</p>\n",
            *results.motionBefore, *results.motionAfter);
    }
    const std::vector<double> before = Steps(results, &FrameRecord::before);
    if (std::any_of(before.begin(), before.end(), [](double step) { return std::isfinite(step); })) {
        html += ToSvg({"way of the camera from frame to frame",
                       "input pixels",
                       {{"before", before}, {"after", Steps(results, &FrameRecord::after)}}});
    }
    return html;
}

struct Side {
    const char* name;
    double SideUse::*used;
};

/// Both sides of one direction, what was negotiated there and what would have been enough.
std::string MarginOf(const RunResults& results, const char* direction, const std::array<Side, 2>& sides,
                     uint32_t input, uint32_t output) {
    const double margin = (static_cast<double>(input) - output) / 2;
    Chart chart{fmt::format("{} margin used on each side", direction), "input pixels", {}};
    double most = 0;
    for (const Side& side : sides) {
        std::vector<double> used =
            OfFrames(results, [&](const FrameRecord& frame) { return frame.used.*side.used; });
        most = std::accumulate(used.begin(), used.end(), most,
                               [](double a, double b) { return std::max(a, b); });
        chart.lines.push_back({side.name, std::move(used)});
    }
    chart.lines.push_back({"negotiated", std::vector<double>(results.frames.size(), margin), true});
    return fmt::format(
               "<p{}>At most {:.1f} of {:.1f} pixels on a side; a {} margin of {:.3f} would have sufficed, "
               "{:.3f} was "
               "negotiated.</p>\n",
               most > margin ? " class='bad'" : "", most, margin, direction, 2 * most / output,
               2 * margin / output) +
           ToSvg(chart);
}

std::string MarginSection(const RunResults& results) {
    if (results.frames.empty()) {
        return "";
    }
    const Size in = results.sizes.input;
    const Size out = results.sizes.output;
    return MarginOf(results, "horizontal", {{{"left", &SideUse::left}, {"right", &SideUse::right}}}, in.width,
                    out.width) +
           MarginOf(results, "vertical", {{{"top", &SideUse::top}, {"bottom", &SideUse::bottom}}}, in.height,
                    out.height);
}

std::string QualitySection(const RunResults& results) {
    std::vector<TableRow> psnr = {{"PSNR", "dB"}};
    for (const auto& [what, decibels] : results.psnr) {
        psnr.push_back({what, fmt::format("{:.2f}", decibels)});
    }
    std::string html = psnr.size() > 1 ? Table(psnr) : "";
    if (!results.planes.empty()) {
        std::vector<TableRow> planes = {{"plane", "max", "mean", "within the limit"}};
        for (const auto& [plane, error] : results.planes) {
            planes.push_back({plane, fmt::format("{}", error.max), fmt::format("{:.4f}", error.mean),
                              fmt::format("{:.4f} %", 100 * error.shareWithinLimit)});
        }
        html += "<p>Levels by which the node's output differs from the reference made on the CPU:</p>\n";
        html += Table(planes);
        html += Figure(results.heatMap, fmt::format("luma error of the worst frame, {}", results.worstFrame));
    }
    return html;
}

std::string TimeSection(const RunResults& results) {
    std::vector<TableRow> rows = {{"stage", "p50 ms", "p95 ms", "max ms"}};
    for (const auto& [stage, milliseconds] : results.stages) {
        if (!milliseconds.empty()) {
            const CallTimes times = Summarize({milliseconds.begin(), milliseconds.end()});
            rows.push_back({stage, fmt::format("{:.2f}", times.p50), fmt::format("{:.2f}", times.p95),
                            fmt::format("{:.2f}", times.max)});
        }
    }
    return Table(rows);
}

std::string CounterSection(const RunResults& results) {
    const RunCounters& counters = results.counters;
    return Table({{"counter", "value"},
                  {"buffers imported", fmt::format("{}", counters.imports)},
                  {"buffers found in the cache", fmt::format("{}", counters.cacheHits)},
                  {"live images at the most", fmt::format("{}", counters.liveImages)},
                  {"open file descriptors at the most", fmt::format("{}", counters.openFds)}});
}

std::string FindingSection(const RunResults& results) {
    std::string html;
    for (const std::string& finding : results.findings) {
        html += fmt::format("<li class='bad'>{}</li>\n", EscapeMarkup(finding));
    }
    return html.empty() ? "<p>The node kept all rules of its host.</p>\n" : "<ul>\n" + html + "</ul>\n";
}

}  // namespace

void RequireReportFree(const std::filesystem::path& folder, bool overwrite) {
    RequireFree(folder / PageName, overwrite);
    RequireFree(folder / JsonName, overwrite);
}

void WriteRunReport(const RunResults& results, const std::filesystem::path& folder, bool overwrite) {
    const std::string title = EscapeMarkup(fmt::format("dewarp-desk {} {}", results.command, results.clip));
    const std::string page =
        fmt::format(
            "<!DOCTYPE html>\n<html lang='en'><head><meta charset='utf-8'><title>{0}</title>"
            "<style>{1}</style></head>\n<body>\n<h1>{0}</h1>\n",
            title, Style) +
        RunSection(results) + Section("Before and after", PictureSection(results)) +
        Section("Camera", PathSection(results)) + Section("Motion between frames", MotionSection(results)) +
        Section("Margin", MarginSection(results)) + Section("Quality", QualitySection(results)) +
        Section("Time per frame", TimeSection(results)) + Section("Counters", CounterSection(results)) +
        Section("Findings", FindingSection(results)) + "</body></html>\n";
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error) {
        throw std::runtime_error(
            fmt::format("the report folder {} cannot be made: {}", folder.string(), error.message()));
    }
    WriteWhole(folder / PageName, page, overwrite);
    WriteJson(ToJson(results), (folder / JsonName).string(), overwrite);
}

}  // namespace desk
