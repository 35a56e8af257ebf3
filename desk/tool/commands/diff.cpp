#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

#include "desk/tool/commands/commands.h"
#include "desk/tool/errors.h"
#include "desk/tool/grids/dump_file.h"
#include "desk/tool/report/results.h"

namespace desk {
namespace {

struct DiffOptions {
    CommonOptions common;
    std::array<std::filesystem::path, 2> dumps;
};

/// A value that differs: its places in both files, and what it is there.
struct Difference {
    size_t line = 0;
    std::string what;
    double size = 0;
};

struct DiffResult {
    DumpKind kind = DumpKind::Grid;
    std::array<size_t, 2> lines{};
    size_t differingLines = 0;
    size_t values = 0;
    size_t differingValues = 0;
    double sum = 0;  ///< of the finite differences
    std::optional<Difference> first;
    std::optional<Difference> largest;

    bool IsEqual() const {
        return !first;
    }
    double Mean() const {
        return values == 0 ? 0 : sum / static_cast<double>(values);
    }
};

void Add(DiffResult& result, const Difference& difference) {
    if (!result.first) {
        result.first = difference;
    }
    if (!result.largest || difference.size > result.largest->size) {
        result.largest = difference;
    }
}

/// How a value is called in words.
std::string NameOfValue(DumpKind kind, size_t value) {
    const char axis = value % 2 == 0 ? 'x' : 'y';
    const size_t columns = kind == DumpKind::Grid ? 35 : 33;
    return fmt::format("{} of point {} in row {}", axis, value / 2 % columns, value / 2 / columns);
}

void CompareNumber(DiffResult& result, size_t line, const char* name, uint64_t a, uint64_t b) {
    if (a != b) {
        Add(result, {line, fmt::format("{} is {} and {}", name, a, b), 0});
    }
}

void CompareLines(DiffResult& result, const DumpLine& a, const DumpLine& b) {
    const size_t before = result.differingValues;
    CompareNumber(result, a.number, "the request id", a.requestId, b.requestId);
    CompareNumber(result, a.number, "the header's first number", a.header[0], b.header[0]);
    CompareNumber(result, a.number, "the header's second number", a.header[1], b.header[1]);
    for (size_t i = 0; i < a.values.size(); i++) {
        const double difference = std::abs(a.values[i] - b.values[i]);
        const bool isBothNan = std::isnan(a.values[i]) && std::isnan(b.values[i]);
        if (a.values[i] == b.values[i] || isBothNan) {
            continue;
        }
        result.differingValues++;
        result.sum += std::isfinite(difference) ? difference : 0;
        Add(result, {a.number,
                     fmt::format("{} (columns {} and {}) is {:.4f} and {:.4f}", NameOfValue(result.kind, i),
                                 a.columns[i], b.columns[i], a.values[i], b.values[i]),
                     difference});
    }
    result.values += a.values.size();
    const bool isHeadDifferent = a.requestId != b.requestId || a.header != b.header;
    result.differingLines += isHeadDifferent || result.differingValues != before ? 1U : 0U;
}

DiffResult Compare(DumpReader& a, DumpReader& b) {
    if (a.Kind() != b.Kind()) {
        throw DumpError(b.File(), 0, 0,
                        fmt::format("expected a {} dump, as {} is, got a {} dump", NameOf(a.Kind()),
                                    a.File().string(), NameOf(b.Kind())));
    }
    DiffResult result;
    result.kind = a.Kind();
    std::optional<DumpLine> lineA = a.Next();
    std::optional<DumpLine> lineB = b.Next();
    for (; lineA || lineB; lineA = a.Next(), lineB = b.Next()) {
        result.lines[0] += lineA ? 1U : 0U;
        result.lines[1] += lineB ? 1U : 0U;
        if (lineA && lineB) {
            CompareLines(result, *lineA, *lineB);
        } else {
            const DumpLine& only = lineA ? *lineA : *lineB;
            Add(result,
                {only.number,
                 fmt::format("request {} is only in {}", only.requestId, (lineA ? a : b).File().string()),
                 0});
            result.differingLines++;
        }
    }
    return result;
}

nlohmann::json ToJson(const DiffOptions& options, const DiffResult& result) {
    const auto place = [](const std::optional<Difference>& difference) {
        return difference ? nlohmann::json{{"line", difference->line}, {"what", difference->what}}
                          : nlohmann::json();
    };
    return {{"schema", 1},
            {"command", "diff"},
            {"dumps", {options.dumps[0].string(), options.dumps[1].string()}},
            {"kind", NameOf(result.kind)},
            {"equal", result.IsEqual()},
            {"lines", result.lines},
            {"differing_lines", result.differingLines},
            {"values", result.values},
            {"differing_values", result.differingValues},
            {"mean_difference", result.Mean()},
            {"first", place(result.first)},
            {"largest", place(result.largest)}};
}

int RunDiff(const DiffOptions& options) {
    DumpReader a(options.dumps[0]);
    DumpReader b(options.dumps[1]);
    const DiffResult result = Compare(a, b);
    WriteJson(ToJson(options, result), options.common.json, options.common.overwrite);
    if (result.IsEqual()) {
        fmt::print(stderr, "no difference in {} lines\n", result.lines[0]);
        return Done;
    }
    if (options.common.json != "-") {
        fmt::print("first: line {}, {}\n", result.first->line, result.first->what);
        fmt::print("lines: {} and {}, {} differ\n", result.lines[0], result.lines[1], result.differingLines);
        fmt::print("values: {} of {} differ, by {:.6f} on the mean over all\n", result.differingValues,
                   result.values, result.Mean());
        fmt::print("largest: line {}, {}\n", result.largest->line, result.largest->what);
    }
    return CheckFailed;
}

}  // namespace

void AddDiff(CLI::App& app, ChosenCommand& chosen) {
    CLI::App& command = AddCommand(app, "diff", "Compares two dumps line by line and value by value.",
                                   "dewarp-desk diff device/Warp2_Grid_20261115_171203.txt desk/grids.txt");
    auto options = std::make_shared<DiffOptions>();
    command.add_option("DUMP", options->dumps, "two dumps of one kind")->required();
    AddCommonOptions(command, options->common);
    command.callback([options, &chosen] { chosen = [options] { return RunDiff(*options); }; });
}

}  // namespace desk
