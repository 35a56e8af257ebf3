#include <fmt/format.h>

#include <algorithm>

#include "desk/cli/commands.h"
#include "desk/dump/dump_checks.h"
#include "desk/output/output.h"
#include "desk/output/say.h"
#include "desk/report/chart.h"
#include "desk/report/results.h"
#include "desk/warp/sizing.h"

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

std::string MarginPicture(const DumpCheck& check) {
    std::vector<SideUse> used;
    for (const DumpFrame& frame : check.frames) {
        used.push_back(*frame.used);
    }
    const cv::Size margin = check.sizes.input - check.sizes.output;
    return DrawMargin("margin used on each side", "pixels", {Left, Top, Right, Bottom}, used,
                      {{"horizontal margin", margin.width / 2.0}, {"vertical margin", margin.height / 2.0}});
}

void WritePictures(const InspectOptions& options, const std::filesystem::path& dump, const DumpCheck& check) {
    if (options.pictures.empty() || check.frames.empty()) {
        return;
    }
    const Folder folder(options.pictures);
    const std::string stem = (options.pictures / dump.stem()).string();
    const std::string title = fmt::format("{}, line {}", dump.filename().string(), check.pointsLine);
    const cv::Size2d frame = check.kind == DumpKind::Grid ? cv::Size2d(check.sizes.input) : cv::Size2d();
    WriteWhole(stem + PictureEndings[0], DrawMesh(title, check.points, MeshColumns, frame),
               options.overwrite);
    if (check.sizes.IsKnown()) {
        WriteWhole(stem + PictureEndings[1], MarginPicture(check), options.overwrite);
    }
}

Json ToJson(const std::filesystem::path& dump, const DumpCheck& check) {
    Json findings = Json::array();
    for (const DumpFinding& finding : check.findings.first) {
        Json& json = findings.emplace_back(Json{{"line", finding.line}});
        const auto add = [&json](const char* name, const auto& value, bool applies) {
            if (applies) {
                json[name] = value;
            }
        };
        add("column", finding.column, finding.column > 0);
        add("kind", finding.kind, true);
        add("request", finding.request.value_or(0), finding.request.has_value());
        add("previous_request", finding.previous.value_or(0), finding.previous.has_value());
        add("side", SideNames[finding.side.value_or(Left)], finding.side.has_value());
        add("pixels", finding.pixels, finding.side.has_value());
        add("text", finding.text, true);
    }
    return {{"file", dump.string()},
            {"kind", NameOf(check.kind)},
            {"good_lines", check.frames.size()},
            {"finding_counts", check.findings.counts},
            {"findings", findings}};
}

void Print(const std::filesystem::path& dump, const DumpCheck& check) {
    for (const DumpFinding& finding : check.findings.first) {
        const std::string column = finding.column == 0 ? "" : fmt::format(":{}", finding.column);
        Say(stdout, "{}:{}{}: {}: {}", dump.string(), finding.line, column, finding.kind, finding.text);
    }
    for (const auto& [kind, count] : check.findings.counts) {
        if (count > DumpFindings::MostOfAKind) {
            Say(stdout, "{}: {}: {} in all, of which the first {} are shown", dump.string(), kind, count,
                DumpFindings::MostOfAKind);
        }
    }
    const bool isReachUnknown = check.kind == DumpKind::Grid && !check.sizes.IsKnown();
    Say(stderr, "{}: {} dump, {} good lines, {} findings{}", dump.string(), NameOf(check.kind),
        check.frames.size(), check.findings.Count(),
        isReachUnknown ? "; reach beyond the input not checked: --size names the output's size" : "");
}

int RunInspect(const InspectOptions& options) {
    WarpSizes sizes = {{}, options.size.value_or(cv::Size())};
    if (options.margin) {
        sizes.input = InputFor(sizes.output, *options.margin);
    }
    Json dumps = Json::array();
    bool isClean = true;
    for (const std::filesystem::path& dump : options.dumps) {
        const DumpCheck check = CheckDump(dump, sizes);
        isClean = isClean && check.findings.first.empty();
        WritePictures(options, dump, check);
        dumps.push_back(ToJson(dump, check));
        if (options.json != "-") {
            Print(dump, check);
        }
    }
    WriteJson({{"schema", 1}, {"command", "inspect"}, {"dumps", dumps}}, options.json, options.overwrite);
    return isClean ? Done : CheckFailed;
}

}  // namespace

void AddInspect(CLI::App& app, int& status) {
    auto [command, options] = AddCommand<InspectOptions>(
        app, "inspect", "Looks for faults in the node's grid and mesh dumps.",
        "dewarp-desk inspect Warp2_Grid_20261115_171203.txt --size 1920x1080 --margin 0.2", status,
        RunInspect);
    command.add_option("DUMP", options.dumps, "dumps of any kind")->required()->group(Inputs);
    CLI::Option* const size = AddSize(command, options.size);
    AddMargin(command, options.margin)->needs(size);
    AddOutput(command, "--pictures", MakesFolder, options.pictures,
              "for pictures of the mesh and of margin use");
    AddJson(command, options.json);
}

}  // namespace desk
