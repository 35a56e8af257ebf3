#include "desk/dump/grid_dump.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <optional>

#include "desk/dump/dump_checks.h"
#include "desk/dump/dump_reader.h"

namespace desk {
namespace {

/// Mean distance between the mesh's first and last column or row, in input pixels: the input's size, when the
/// grid neither zooms nor folds.
cv::Point2d Span(const DumpLine& line) {
    const std::vector<cv::Point2d> points = MeshPoints(line, DumpKind::Grid);
    cv::Point2d span;
    for (auto row = points.begin(); row != points.end(); row += MeshColumns) {
        span.x += (row[MeshColumns - 1].x - row[0].x) / MeshRows;
    }
    for (auto column = points.begin(); column != points.begin() + MeshColumns; ++column) {
        span.y += (column[MeshVertices - MeshColumns].y - column[0].y) / MeshColumns;
    }
    return span;
}

/// Whether a line's grid may be for an input of this size: it says so, or it spans it more or less.
bool Fits(const DumpLine& line, cv::Size input) {
    // Warps zoom by a few per cent; more comes from a picture of another size.
    constexpr double MostZoom = 1.25;
    const cv::Point2d span = Span(line);
    const auto spans = [](double part, int whole) {
        return part * MostZoom >= whole && part <= whole * MostZoom;
    };
    const std::array<uint32_t, 2> size = {static_cast<uint32_t>(input.width),
                                          static_cast<uint32_t>(input.height)};
    return line.header == size || (spans(span.x, input.width) && spans(span.y, input.height));
}

}  // namespace

GridDump::GridDump(const std::filesystem::path& file, cv::Size input, bool byRequest) {
    DumpReader reader(file);
    if (reader.Kind() != DumpKind::Grid) {
        throw DumpError(file, 0, 0,
                        fmt::format("expected a grid dump, got a {} dump", NameOf(reader.Kind())));
    }
    RequestOrder order;
    while (const std::optional<DumpLine> line = reader.Next()) {
        const auto fail = [&](size_t column, const std::string& reason) {
            throw DumpError(file, line->number, column, reason);
        };
        if (const std::optional<BadValue> bad = FindBadValue(*line)) {
            fail(bad->column, bad->text);
        }
        if (!Fits(*line, input)) {
            fail(0, fmt::format(
                        "expected a grid for an input of {} x {}, got one that spans {:.0f} x {:.0f} pixels",
                        input.width, input.height, Span(*line).x, Span(*line).y));
        }
        order.Add(line->number, line->requestId);
        lines_.push_back({line->requestId, ToGrid(*line)});
    }
    DumpFindings findings;
    order.Check(findings);
    for (const DumpFinding& finding : findings.first) {
        if (finding.kind == "repeated-request") {
            throw DumpError(file, finding.line, finding.column,
                            finding.text + "; expected every request id once");
        }
        if (!byRequest) {
            throw DumpError(file, finding.line, finding.column,
                            finding.text +
                                "; expected the request id of the clip's first frame with "
                                "--first-request, or --gaps skip to leave out frames without a line");
        }
    }
    std::sort(lines_.begin(), lines_.end(),
              [](const Line& a, const Line& b) { return a.requestId < b.requestId; });
}

const GridDump::Line* GridDump::Find(uint64_t requestId) const {
    const auto found = std::lower_bound(lines_.begin(), lines_.end(), requestId,
                                        [](const Line& line, uint64_t id) { return line.requestId < id; });
    return found != lines_.end() && found->requestId == requestId ? &*found : nullptr;
}

}  // namespace desk
