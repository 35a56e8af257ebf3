#include "desk/dump/grid_dump.h"

#include <fmt/format.h>

#include <array>

#include "desk/dump/dump_file.h"
#include "desk/warp/grid_size.h"

namespace desk {
namespace {

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

/// Whether a line's grid may be for an input of this size: it says so, or it spans it more or less.
bool Fits(const DumpLine& line, cv::Size input) {
    constexpr double MostZoom =
        1.25;  // warps zoom by a few per cent; more comes from a picture of another size
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
        const auto [known, isNew] = byRequest_.emplace(line->requestId, grids_.size());
        if (!isNew) {
            fail(1, fmt::format("expected every request id once, got {} again after line {}", line->requestId,
                                known->second + 1));
        }
        grids_.push_back(ToGrid(*line));
        requestIds_.push_back(line->requestId);
    }
}

std::optional<size_t> GridDump::Find(uint64_t requestId) const {
    const auto found = byRequest_.find(requestId);
    return found == byRequest_.end() ? std::nullopt : std::optional<size_t>(found->second);
}

}  // namespace desk
