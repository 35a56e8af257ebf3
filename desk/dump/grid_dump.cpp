#include "desk/dump/grid_dump.h"

#include <fmt/format.h>

#include <array>

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

GridDump::GridDump(const std::filesystem::path& file, cv::Size input) {
    DumpReader reader(file);
    if (reader.Kind() != DumpKind::Grid) {
        throw DumpError(file, 0, 0,
                        fmt::format("expected a grid dump, got a {} dump", NameOf(reader.Kind())));
    }
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
        // Every line so far was good, so that lines and grids have the same numbers.
        const auto [known, isNew] = byRequest_.emplace(line->requestId, lines_.size());
        if (!isNew) {
            fail(1, fmt::format("expected every request id once, got {} again after line {}", line->requestId,
                                known->second + 1));
        }
        lines_.push_back({line->requestId, ToGrid(*line)});
    }
}

std::optional<size_t> GridDump::Find(uint64_t requestId) const {
    const auto found = byRequest_.find(requestId);
    return found == byRequest_.end() ? std::nullopt : std::optional<size_t>(found->second);
}

}  // namespace desk
