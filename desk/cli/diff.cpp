#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <unordered_set>

#include "desk/base/usage_error.h"
#include "desk/cli/commands.h"
#include "desk/dump/dump_checks.h"
#include "desk/output/say.h"
#include "desk/report/results.h"

namespace desk {
namespace {

struct DiffOptions {
    std::array<std::filesystem::path, 2> dumps;
    std::optional<double> tolerance;  ///< by which values may differ, in the dumps' unit
    std::filesystem::path json;
    bool overwrite = false;
};

/// Requests that only one of the dumps has lines of.
struct OnlyIn {
    size_t dump;
    uint64_t first, last;
};

struct DiffResult {
    double tolerance = 0;
    std::array<size_t, 2> lines{};
    size_t differingLines = 0;
    size_t values = 0;
    size_t differingValues = 0;
    double sum = 0;       ///< of the finite differences
    double most = -1;     ///< the largest difference; -1 for none
    std::string first;    ///< what differs first in a request's two lines, in words; empty when nothing does
    std::string largest;  ///< what differs most
    std::vector<OnlyIn> onlyIn;  ///< as many as are shown
    size_t onlyInCount = 0;      ///< all of them

    void Add(const std::string& text, double size) {
        first = first.empty() ? text : first;
        if (size > most) {
            most = size;
            largest = text;
        }
    }
    void Miss(size_t dump, uint64_t request) {
        const bool follows =
            !onlyIn.empty() && onlyIn.back().dump == dump && onlyIn.back().last + 1 == request;
        (follows ? onlyIn.back() : onlyIn.emplace_back(OnlyIn{dump, request, request})).last = request;
        differingLines++;
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
        result.Add(fmt::format("request {} (lines {} and {}), {}", a.requestId, a.number, b.number, what),
                   size);
        isDifferent = true;
    };
    for (size_t i = 0; i < a.header.size(); i++) {
        if (a.header[i] != b.header[i]) {
            differ(fmt::format("number {} of the header is {} and {}", i + 1, a.header[i], b.header[i]), 0);
        }
    }
    constexpr double Rounding = 1e-9;  // of decimals read as double
    for (size_t i = 0; i < a.values.size(); i++) {
        const double difference = std::abs(a.values[i] - b.values[i]);
        result.sum += std::isfinite(difference) ? difference : 0;
        if (a.values[i] == b.values[i] || difference <= result.tolerance + Rounding ||
            (std::isnan(a.values[i]) && std::isnan(b.values[i]))) {
            continue;
        }
        result.differingValues++;
        differ(fmt::format("{} (columns {} and {}) is {:.4f} and {:.4f}", NameOfValue(kind, i), a.columns[i],
                           b.columns[i], a.values[i], b.values[i]),
               difference);
    }
    result.values += a.values.size();
    result.differingLines += isDifferent ? 1U : 0U;
}

/// Matches lines by their request ids, reading on in the dump that is behind. A line waits for that of the
/// other dump, but only so many do, as a line takes 30 kB.
DiffResult Compare(std::array<DumpReader, 2>& dumps, double tolerance) {
    constexpr size_t MostWaiting = 4096;
    DiffResult result;
    result.tolerance = tolerance;
    std::array<std::map<uint64_t, DumpLine>, 2> waiting;
    std::array<std::unordered_set<uint64_t>, 2> known;
    std::array<std::optional<uint64_t>, 2> newest;
    std::array<bool, 2> hasEnded{};
    const auto miss = [&](size_t dump) {
        result.Miss(dump, waiting[dump].begin()->first);
        waiting[dump].erase(waiting[dump].begin());
    };
    while (!hasEnded[0] || !hasEnded[1]) {
        const size_t dump = hasEnded[0] || (!hasEnded[1] && newest[1] < newest[0]) ? 1 : 0;
        std::optional<DumpLine> line = dumps[dump].Next();
        hasEnded[dump] = !line.has_value();
        if (!line) {
            continue;
        }
        result.lines[dump]++;
        newest[dump] = line->requestId;
        const auto other = waiting[1 - dump].find(line->requestId);
        if (!known[dump].insert(line->requestId).second) {
            result.Add(fmt::format("request {} comes again in line {} of {}", line->requestId, line->number,
                                   dumps[dump].File().string()),
                       0);
            result.differingLines++;
        } else if (other != waiting[1 - dump].end()) {
            const DumpLine& second = other->second;
            CompareLines(dumps[0].Kind(), dump == 0 ? *line : second, dump == 0 ? second : *line, result);
            waiting[1 - dump].erase(other);
        } else {
            waiting[dump].emplace(line->requestId, std::move(*line));
        }
        if (waiting[dump].size() > MostWaiting) {
            miss(dump);
        }
    }
    for (const size_t dump : {0U, 1U}) {
        while (!waiting[dump].empty()) {
            miss(dump);
        }
    }
    result.onlyInCount = result.onlyIn.size();
    result.onlyIn.resize(std::min(result.onlyInCount, DumpFindings::MostOfAKind));
    return result;
}

void Print(const DiffOptions& options, const DiffResult& result) {
    for (const auto& [dump, first, last] : result.onlyIn) {
        Say(stdout, "only in {}: request{}", options.dumps[dump].string(),
            first == last ? fmt::format(" {}", first) : fmt::format("s {} to {}", first, last));
    }
    if (result.onlyInCount > result.onlyIn.size()) {
        Say(stdout, "{} such ranges in all, of which the first {} are shown", result.onlyInCount,
            result.onlyIn.size());
    }
    if (!result.first.empty()) {
        Say(stdout, "first: {}", result.first);
    }
    Say(stdout, "lines: {} and {}, {} differ", result.lines[0], result.lines[1], result.differingLines);
    Say(stdout, "values: {} of {} differ by more than {}, by {:.6f} on the mean over all",
        result.differingValues, result.values, result.tolerance, result.Mean());
    if (!result.largest.empty()) {
        Say(stdout, "largest: {}", result.largest);
    }
}

int RunDiff(const DiffOptions& options) {
    std::array<DumpReader, 2> dumps = {DumpReader(options.dumps[0]), DumpReader(options.dumps[1])};
    const DumpKind kind = dumps[0].Kind();
    if (dumps[1].Kind() != kind) {
        throw UsageError(fmt::format("{}: expected a {} dump, as {} is, got a {} dump",
                                     options.dumps[1].string(), NameOf(kind), options.dumps[0].string(),
                                     NameOf(dumps[1].Kind())));
    }
    constexpr double OfGrid = 0.001;   // of a pixel, which no picture shows
    constexpr double OfMesh = 0.0001;  // the last decimal
    const DiffResult result =
        Compare(dumps, options.tolerance.value_or(kind == DumpKind::Grid ? OfGrid : OfMesh));
    const bool isEqual = result.differingLines == 0;
    Json onlyIn = Json::array();
    for (const auto& [dump, first, last] : result.onlyIn) {
        onlyIn.push_back(
            {{"dump", options.dumps[dump].string()}, {"first_request", first}, {"last_request", last}});
    }
    WriteJson({{"schema", 1},
               {"command", "diff"},
               {"dumps", {options.dumps[0].string(), options.dumps[1].string()}},
               {"kind", NameOf(kind)},
               {"tolerance", result.tolerance},
               {"equal", isEqual},
               {"lines", result.lines},
               {"differing_lines", result.differingLines},
               {"only_in", onlyIn},
               {"only_in_count", result.onlyInCount},
               {"values", result.values},
               {"differing_values", result.differingValues},
               {"mean_difference", result.Mean()},
               {"first", result.first},
               {"largest", result.largest}},
              options.json, options.overwrite);
    if (isEqual) {
        Say(stderr, "no difference of more than {} in {} lines", result.tolerance, result.lines[0]);
        return Done;
    }
    if (options.json != "-") {
        Print(options, result);
    }
    return CheckFailed;
}

}  // namespace

void AddDiff(CLI::App& app, int& status) {
    auto [command, options] = AddCommand<DiffOptions>(
        app, "diff", "Compares two dumps request by request and value by value.",
        "dewarp-desk diff device/Warp2_Grid_20261115_171203.txt desk/grids.txt", status, RunDiff);
    command.add_option("DUMP", options.dumps, "two dumps of one kind")->required()->group(Inputs);
    command
        .add_option("--tolerance", options.tolerance,
                    "by which values may differ: pixels of a grid [0.001], the unit of a mesh [0.0001]")
        ->check(CLI::NonNegativeNumber);
    AddJson(command, options.json);
}

}  // namespace desk
