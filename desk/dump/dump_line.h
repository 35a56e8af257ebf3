#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <opencv2/core.hpp>
#include <vector>

#include "desk/warp/grid_size.h"
#include "host/lumnoderequest.h"

namespace desk {

/// What a node's dump file holds, one line per frame:
///   grid           every point x, y in input pixels about the input's centre, after two header numbers
///   tex, vertices  the mesh array's first floats, one for each vertex and one more, each but the first and
///                  the last printed twice
enum class DumpKind { Grid, TexCoordinates, Vertices };

/// "grid", "texture coordinate" or "vertex".
const char* NameOf(DumpKind kind);

constexpr size_t GridValueCount = size_t{2} * GridPoints;
constexpr size_t MeshValueCount = MeshVertices + 1;

/// One line of a dump.
struct DumpLine {
    size_t number = 0;  ///< in the file, from 1
    uint64_t requestId = 0;
    std::array<uint32_t, 2> header{};  ///< of a grid: the two numbers after the request id
    std::vector<double> values;        ///< GridValueCount or MeshValueCount; may hold NaN and infinity
    std::vector<size_t> columns;       ///< of each value in its line, from 1; empty unless read from a file
};

/// Appends the line that a node dumps for a grid: fixed point, four decimals.
void WriteGridLine(std::ostream& out, uint64_t requestId, const IPEICAGridTransform& grid);

/// The grid of a grid dump's line, enabled.
IPEICAGridTransform ToGrid(const DumpLine& line);

/// The points that are drawn, row by row, MeshColumns in each; a mesh dump ends within a row.
std::vector<cv::Point2d> MeshPoints(const DumpLine& line, DumpKind kind);

}  // namespace desk
