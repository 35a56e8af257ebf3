#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "desk/base/usage_error.h"
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

/// Something in a dump that cannot be read or used. The text is the reason after file, line and column.
class DumpError : public UsageError {
public:
    /// Line and column count from 1; 0 leaves them out.
    DumpError(const std::filesystem::path& file, size_t line, size_t column, const std::string& reason);

    size_t Line() const {
        return line_;
    }
    size_t Column() const {
        return column_;
    }
    const std::string& Reason() const {
        return reason_;
    }

private:
    size_t line_;
    size_t column_;
    std::string reason_;
};

/// Reads a dump line by line.
class DumpReader {
public:
    /// Tells the kind by the first line. Throws DumpError when there is no such file, it is empty or no dump;
    /// std::runtime_error when it may not be read.
    explicit DumpReader(std::filesystem::path file);

    DumpKind Kind() const {
        return kind_;
    }
    const std::filesystem::path& File() const {
        return file_;
    }

    /// The next line; empty at the end of the file. Throws DumpError for a malformed or short line; the next
    /// call then goes on with the line after it.
    std::optional<DumpLine> Next();

private:
    bool ReadText();
    DumpLine Parse() const;

    std::filesystem::path file_;
    std::ifstream stream_;
    size_t line_ = 0;   ///< that was read last
    std::string text_;  ///< of it
    bool isComplete_ = false;
    bool isAhead_ = true;  ///< the line has yet to be given out
    DumpKind kind_ = DumpKind::Grid;
};

/// A coordinate that is larger, in pixels either way, belongs to no picture.
constexpr double MaxCoordinate = 65536;

/// A value that is not finite or beyond MaxCoordinate.
struct BadValue {
    size_t column = 0;  ///< in its line, from 1
    bool isFinite = false;
    std::string text;  ///< what was expected, and what is there
};
/// The first bad value of a line that was read from a file; empty when all can be computed with.
std::optional<BadValue> FindBadValue(const DumpLine& line);

/// Appends a line as a node does: fixed point, four decimals.
void WriteDumpLine(std::ostream& out, DumpKind kind, const DumpLine& line);

/// The line that a node would dump for a grid.
DumpLine ToDumpLine(uint64_t requestId, const IPEICAGridTransform& grid);

/// The grid of a grid dump's line, enabled.
IPEICAGridTransform ToGrid(const DumpLine& line);

}  // namespace desk
