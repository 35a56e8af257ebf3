#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <optional>
#include <tuple>

#include "desk/base/usage_error.h"
#include "desk/cli/commands.h"
#include "desk/dump/dump_reader.h"
#include "desk/report/results.h"

namespace desk {
namespace {

struct DiffOptions {
    std::array<std::filesystem::path, 2> dumps;
    std::filesystem::path json;
    bool overwrite = false;
};

struct DiffResult {
    std::array<size_t, 2> lines{};
    size_t differingLines = 0;
    size_t values = 0;
    size_t differingValues = 0;
    double sum = 0;       ///< of the finite differences
    double most = -1;     ///< the largest difference; -1 for none
    std::string first;    ///< what differs first, in words; empty when nothing does
    std::string largest;  ///< what differs most

    void Add(size_t line, const std::string& what, double size) {
        const std::string text = fmt::format("line {}, {}", line, what);
        first = first.empty() ? text : first;
        if (size > most) {
            most = size;
            largest = text;
        }
    }
    double Mean() const {
        return values == 0 ? 0 : sum / static_cast<double>(values);
    }
};

/// How a value is called in words.
std::string NameOfValue(DumpKind kind, size_t value) {
    const char axis = value % 2 == 0 ? 'x' : 'y';
    const size_t columns = kind == DumpKind::Grid ? GridColumns : MeshColumns;
    return fmt::format("{} of point {} in row {}", axis, value / 2 % columns, value / 2 / columns);
}

void CompareLines(DumpKind kind, const DumpLine& a, const DumpLine& b, DiffResult& result) {
    bool isDifferent = false;
    const auto differ = [&](const std::string& what, double size) {
        result.Add(a.number, what, size);
        isDifferent = true;
    };
    const std::tuple<const char*, uint64_t, uint64_t> head[] = {
        {"the request id", a.requestId, b.requestId},
        {"the header's first number", a.header[0], b.header[0]},
        {"the header's second number", a.header[1], b.header[1]}};
    for (const auto& [name, numberA, numberB] : head) {
        if (numberA != numberB) {
            differ(fmt::format("{} is {} and {}", name, numberA, numberB), 0);
        }
    }
    for (size_t i = 0; i < a.values.size(); i++) {
        const double difference = std::abs(a.values[i] - b.values[i]);
        if (a.values[i] == b.values[i] || (std::isnan(a.values[i]) && std::isnan(b.values[i]))) {
            continue;
        }
        result.differingValues++;
        result.sum += std::isfinite(difference) ? difference : 0;
        differ(fmt::format("{} (columns {} and {}) is {:.4f} and {:.4f}", NameOfValue(kind, i), a.columns[i],
                           b.columns[i], a.values[i], b.values[i]),
               difference);
    }
    result.values += a.values.size();
    result.differingLines += isDifferent ? 1U : 0U;
}

DiffResult Compare(DumpReader& a, DumpReader& b) {
    if (a.Kind() != b.Kind()) {
        throw DumpError(b.File(), 0, 0,
                        fmt::format("expected a {} dump, as {} is, got a {} dump", NameOf(a.Kind()),
                                    a.File().string(), NameOf(b.Kind())));
    }
    DiffResult result;
    std::optional<DumpLine> lineA = a.Next();
    std::optional<DumpLine> lineB = b.Next();
    for (; lineA || lineB; lineA = a.Next(), lineB = b.Next()) {
        result.lines[0] += lineA ? 1U : 0U;
        result.lines[1] += lineB ? 1U : 0U;
        if (lineA && lineB) {
            CompareLines(a.Kind(), *lineA, *lineB, result);
        } else {
            const DumpLine& only = lineA ? *lineA : *lineB;
            result.Add(
                only.number,
                fmt::format("request {} is only in {}", only.requestId, (lineA ? a : b).File().string()), 0);
            result.differingLines++;
        }
    }
    return result;
}

int RunDiff(const DiffOptions& options) {
    DumpReader a(options.dumps[0]);
    DumpReader b(options.dumps[1]);
    const DiffResult result = Compare(a, b);
    const bool isEqual = result.first.empty();
    WriteJson({{"schema", 1},
               {"command", "diff"},
               {"dumps", {options.dumps[0].string(), options.dumps[1].string()}},
               {"kind", NameOf(a.Kind())},
               {"equal", isEqual},
               {"lines", result.lines},
               {"differing_lines", result.differingLines},
               {"values", result.values},
               {"differing_values", result.differingValues},
               {"mean_difference", result.Mean()},
               {"first", result.first},
               {"largest", result.largest}},
              options.json, options.overwrite);
    if (isEqual) {
        fmt::print(stderr, "no difference in {} lines\n", result.lines[0]);
        return Done;
    }
    if (options.json != "-") {
        fmt::print("first: {}\nlines: {} and {}, {} differ\n", result.first, result.lines[0], result.lines[1],
                   result.differingLines);
        fmt::print("values: {} of {} differ, by {:.6f} on the mean over all\nlargest: {}\n",
                   result.differingValues, result.values, result.Mean(), result.largest);
    }
    return CheckFailed;
}

}  // namespace

void AddDiff(CLI::App& app, int& status) {
    auto [command, options] = AddCommand<DiffOptions>(
        app, "diff", "Compares two dumps line by line and value by value.",
        "dewarp-desk diff device/Warp2_Grid_20261115_171203.txt desk/grids.txt", status, RunDiff);
    command.add_option("DUMP", options.dumps, "two dumps of one kind")->required()->group(Inputs);
    AddJson(command, options.json);
    AddOverwrite(command, options.overwrite);
}

}  // namespace desk
