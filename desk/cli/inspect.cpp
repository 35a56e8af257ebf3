#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>

#include "desk/cli/commands.h"
#include "desk/dump/dump_checks.h"
#include "desk/output/output.h"
#include "desk/report/chart.h"
#include "desk/report/results.h"
#include "desk/run/exit_code.h"
#include "desk/run/pipeline.h"

namespace desk {
namespace {

struct InspectOptions {
    std::vector<std::filesystem::path> dumps;
    std::optional<cv::Size> size;  ///< of the output, pixels
    std::optional<Margin> margin;  ///< fractions of the output
    std::filesystem::path pictures;
    std::filesystem::path json;
    bool overwrite = false;
};

/// As far as the options tell them. A margin makes the input larger as the node asks for it.
WarpSizes SizesOf(const InspectOptions& options) {
    WarpSizes sizes;
    sizes.output = options.size.value_or(cv::Size());
    if (options.margin) {
        sizes.input = InputFor(sizes.output, *options.margin);
    }
    return sizes;
}

cv::Mat MarginPicture(const DumpCheck& check) {
    Chart chart{"margin used on each side", "pixels", {}};
    const auto add = [&](const char* name, double SideUse::*side) {
        ChartLine line{name, {}};
        for (const DumpFrame& frame : check.frames) {
            line.values.push_back(*frame.used.*side);
        }
        chart.lines.push_back(std::move(line));
    };
    add("left", &SideUse::left);
    add("top", &SideUse::top);
    add("right", &SideUse::right);
    add("bottom", &SideUse::bottom);
    const cv::Size margin = check.sizes.input - check.sizes.output;
    chart.lines.push_back(
        {"horizontal margin", std::vector<double>(check.frames.size(), margin.width / 2.0), true});
    chart.lines.push_back(
        {"vertical margin", std::vector<double>(check.frames.size(), margin.height / 2.0), true});
    return Draw(chart);
}

void WritePictures(const InspectOptions& options, const std::filesystem::path& dump, const DumpCheck& check) {
    if (options.pictures.empty() || check.frames.empty()) {
        return;
    }
    MakeFolder(options.pictures);
    const std::filesystem::path stem = options.pictures / dump.stem();
    const std::string title = fmt::format("{}, line {}", dump.filename().string(), check.pointsLine);
    const cv::Size2d frame = check.kind == DumpKind::Grid ? cv::Size2d(check.sizes.input) : cv::Size2d();
    WriteWhole(stem.string() + "_mesh.png",
               Encoded(DrawMesh(title, check.points, MeshColumns, frame), ".png"), options.overwrite);
    if (check.sizes.IsKnown()) {
        WriteWhole(stem.string() + "_margin.png", Encoded(MarginPicture(check), ".png"), options.overwrite);
    }
}

nlohmann::json ToJson(const std::filesystem::path& dump, const DumpCheck& check) {
    nlohmann::json json = {{"file", dump.string()},
                           {"kind", NameOf(check.kind)},
                           {"good_lines", check.frames.size()},
                           {"findings", nlohmann::json::array()}};
    for (const DumpFinding& finding : check.findings) {
        json["findings"].push_back({{"line", finding.line},
                                    {"column", finding.column},
                                    {"kind", finding.kind},
                                    {"text", finding.text}});
    }
    return json;
}

void Print(const std::filesystem::path& dump, const DumpCheck& check) {
    for (const DumpFinding& finding : check.findings) {
        const std::string column = finding.column == 0 ? "" : fmt::format(":{}", finding.column);
        fmt::print("{}:{}{}: {}: {}\n", dump.string(), finding.line, column, finding.kind, finding.text);
    }
    const bool isReachUnknown = check.kind == DumpKind::Grid && !check.sizes.IsKnown();
    fmt::print(stderr, "{}: {} dump, {} good lines, {} findings{}\n", dump.string(), NameOf(check.kind),
               check.frames.size(), check.findings.size(),
               isReachUnknown ? "; reach beyond the input not checked: --size names the output's size" : "");
}

int RunInspect(const InspectOptions& options) {
    const WarpSizes sizes = SizesOf(options);
    nlohmann::json json = {{"schema", 1}, {"command", "inspect"}, {"dumps", nlohmann::json::array()}};
    bool isClean = true;
    for (const std::filesystem::path& dump : options.dumps) {
        const DumpCheck check = CheckDump(dump, sizes);
        isClean = isClean && check.findings.empty();
        WritePictures(options, dump, check);
        json["dumps"].push_back(ToJson(dump, check));
        if (options.json != "-") {
            Print(dump, check);
        }
    }
    WriteJson(json, options.json, options.overwrite);
    return isClean ? Done : CheckFailed;
}

}  // namespace

void AddInspect(CLI::App& app, ChosenCommand& chosen) {
    CLI::App& command =
        AddCommand(app, "inspect", "Looks for faults in the node's grid and mesh dumps.",
                   "dewarp-desk inspect Warp2_Grid_20261115_171203.txt --size 1920x1080 --margin 0.2");
    auto options = std::make_shared<InspectOptions>();
    command.add_option("DUMP", options->dumps, "dumps of any kind")->required()->group(Inputs);
    CLI::Option* const size = AddSize(command, options->size);
    AddMargin(command, options->margin)->needs(size);
    AddOutput(command, "--pictures", Makes::Folder, options->pictures,
              "for pictures of the mesh and of margin use");
    AddJson(command, options->json);
    AddOverwrite(command, options->overwrite);
    command.callback([options, &chosen] { chosen = [options] { return RunInspect(*options); }; });
}

}  // namespace desk
