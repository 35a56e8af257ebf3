#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <iosfwd>
#include <memory>
#include <opencv2/core.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "desk/base/usage_error.h"
#include "desk/warp/grid_size.h"
#include "desk/warp/warp_map.h"
#include "host/lumnoderequest.h"

struct gzFile_s;

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

/// Something in a dump that a node should not be given.
struct DumpFinding {
    size_t line = 0;    ///< from 1; 0 when it concerns the file as a whole
    size_t column = 0;  ///< from 1; 0 when it concerns the line as a whole
    std::string kind;   ///< as docs/DUMPS.md has them
    std::string text;
    std::optional<uint64_t> request = std::nullopt;   ///< empty when the line's cannot be read
    std::optional<uint64_t> previous = std::nullopt;  ///< the other request, of a finding about two
    std::optional<Side> side = std::nullopt;          ///< of the input
    double pixels = 0;                                ///< beyond that side
};

/// A finding with which a line or the dump cannot be read or used. Its text stands after file, line and
/// column.
struct DumpError : UsageError {
    DumpError(const std::filesystem::path& file, DumpFinding what);

    DumpFinding finding;
};

/// Reads a dump line by line, as the node wrote it or compressed by gzip.
class DumpReader {
public:
    /// Tells the kind by the first line. Throws DumpError when there is no such file, it is empty or no dump,
    /// or an editor has made another file of it; std::runtime_error when it may not be read.
    explicit DumpReader(std::filesystem::path file);

    DumpKind Kind() const {
        return kind_;
    }
    const std::filesystem::path& File() const {
        return file_;
    }

    /// The next line; empty at the end of the file. Throws DumpError for a malformed or short line; the next
    /// call then goes on with the line after it. What cannot be read any further ends there.
    std::optional<DumpLine> Next();

    /// Throws DumpError for a value of the line that is not finite, or so far away that it belongs to no
    /// picture.
    void RequireCoordinates(const DumpLine& line) const;

private:
    bool ReadText();
    DumpLine Parse();
    void ParseValues(DumpLine& line);
    /// These two take the line apart from the left; false when something else comes next.
    bool Skip(std::string_view expected);
    template <typename Number>
    bool Read(Number& number);
    [[noreturn]] void Refuse(size_t line, size_t column, const std::string& why) const;
    /// Names what comes next in the line, too.
    [[noreturn]] void Miss(const std::string& expected) const;

    std::filesystem::path file_;
    std::unique_ptr<gzFile_s, int (*)(gzFile_s*)> stream_;
    size_t line_ = 0;                  ///< that was read last
    std::string text_;                 ///< of it
    size_t at_ = 0;                    ///< what comes next in it
    std::optional<uint64_t> request_;  ///< of the line; empty when none can be read
    bool isComplete_ = false;
    bool isAhead_ = true;  ///< the line has yet to be given out
    DumpKind kind_ = DumpKind::Grid;
};

}  // namespace desk
