#include "desk/dump/grid_dump.h"

#include <fmt/format.h>

#include <array>
#include <optional>

#include "desk/dump/dump_checks.h"

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

std::map<uint64_t, IPEICAGridTransform> ReadGrids(const std::filesystem::path& file, cv::Size input,
                                                  bool byRequest) {
    DumpReader reader(file);
    if (reader.Kind() != DumpKind::Grid) {
        throw UsageError(
            fmt::format("{}: expected a grid dump, got a {} dump", file.string(), NameOf(reader.Kind())));
    }
    std::map<uint64_t, IPEICAGridTransform> grids;
    std::vector<LineRequest> requests;
    while (const std::optional<DumpLine> line = reader.Next()) {
        reader.RequireCoordinates(*line);
        if (!Fits(*line, input)) {
            const cv::Point2d span = Span(*line);
            throw DumpError(file, {line->number, 0, "",
                                   fmt::format("expected a grid for an input of {} x {}, got one that spans "
                                               "{:.0f} x {:.0f} pixels",
                                               input.width, input.height, span.x, span.y)});
        }
        requests.push_back({line->number, line->requestId});
        grids.emplace(line->requestId, ToGrid(*line));
    }
    DumpFindings findings;
    CheckOrder(requests, findings);
    for (DumpFinding& finding : findings.first) {
        const bool isTwice = finding.kind == "repeated-request";
        if (isTwice || !byRequest) {
            finding.text += isTwice ? "; expected every request id once"
                                    : "; expected the request id of the clip's first frame with "
                                      "--first-request, or --gaps skip to leave out frames without a line";
            throw DumpError(file, finding);
        }
    }
    return grids;
}

}  // namespace desk
