#include "desk/tool/grid_dump.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>

#include "desk/tool/grids/warp_grid.h"

namespace desk {
namespace {

void RequireUsable(const std::filesystem::path& file, const DumpLine& line) {
    const auto isUsable = [](double value) { return std::abs(value) <= MaxGridCoordinate; };  // NaN is not
    const auto bad = std::find_if_not(line.values.begin(), line.values.end(), isUsable);
    if (bad != line.values.end()) {
        throw DumpError(file, line.number, line.columns[static_cast<size_t>(bad - line.values.begin())],
                        fmt::format("expected a coordinate between {} and {} pixels, got {:.4f}",
                                    -MaxGridCoordinate, MaxGridCoordinate, *bad));
    }
}

/// Mean distance between the mesh's first and last column or row, the grid's border left out, in input
/// pixels: the input's size, when the grid neither zooms nor folds.
cv::Point2d Span(const DumpLine& line) {
    const auto value = [&line](size_t column, size_t row, size_t axis) {
        return line.values[2 * (row * GridColumns + column) + axis];
    };
    cv::Point2d span;
    for (size_t row = 1; row < GridRows - 1; row++) {
        span.x += (value(GridColumns - 2, row, 0) - value(1, row, 0)) / (GridRows - 2);
    }
    for (size_t column = 1; column < GridColumns - 1; column++) {
        span.y += (value(column, GridRows - 2, 1) - value(column, 1, 1)) / (GridColumns - 2);
    }
    return span;
}

}  // namespace

GridDump::GridDump(const std::filesystem::path& file) : reader_(file) {
    if (reader_.Kind() != DumpKind::Grid) {
        throw DumpError(file, 0, 0,
                        fmt::format("expected a grid dump, got a {} dump", NameOf(reader_.Kind())));
    }
    for (DumpReader::Place place = reader_.Tell(); const auto line = reader_.Next(); place = reader_.Tell()) {
        RequireUsable(file, *line);
        const auto [known, isNew] = byRequest_.emplace(line->requestId, places_.size());
        if (!isNew) {
            throw DumpError(file, line->number, 1,
                            fmt::format("expected every request id once, got {} again after line {}",
                                        line->requestId, places_[known->second].line + 1));
        }
        places_.push_back(place);
        requestIds_.push_back(line->requestId);
    }
}

void GridDump::RequireInputSize(cv::Size input) {
    // Warps zoom by a few per cent; more than that comes from a picture of another size.
    constexpr double MostZoom = 1.25;
    for (size_t n = 0; n < Size(); n++) {
        const DumpLine line = Line(n);
        const cv::Point2d span = Span(line);
        const std::array<uint32_t, 2> size = {static_cast<uint32_t>(input.width),
                                              static_cast<uint32_t>(input.height)};
        const auto fits = [](double part, int whole) {
            return part * MostZoom >= whole && part <= whole * MostZoom;
        };
        if (line.header != size && !(fits(span.x, input.width) && fits(span.y, input.height))) {
            throw DumpError(reader_.File(), line.number, 0,
                            fmt::format("expected a grid for an input of {} x {}, got one that spans "
                                        "{:.0f} x {:.0f} pixels",
                                        input.width, input.height, span.x, span.y));
        }
    }
}

IPEICAGridTransform GridDump::Grid(size_t n) {
    return ToGrid(Line(n));
}

std::optional<size_t> GridDump::Find(uint64_t requestId) const {
    const auto found = byRequest_.find(requestId);
    return found == byRequest_.end() ? std::nullopt : std::optional<size_t>(found->second);
}

DumpLine GridDump::Line(size_t n) {
    reader_.Seek(places_[n]);
    std::optional<DumpLine> line = reader_.Next();
    if (!line) {
        throw DumpError(reader_.File(), places_[n].line + 1, 0,
                        "expected the line that was there before: the file was changed meanwhile");
    }
    return *std::move(line);
}

}  // namespace desk
