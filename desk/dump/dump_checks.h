#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <opencv2/core.hpp>
#include <optional>
#include <string>
#include <vector>

#include "desk/dump/dump_line.h"
#include "desk/warp/sizing.h"
#include "desk/warp/warp_map.h"

namespace desk {

/// Something in a dump that a node should not be given.
struct DumpFinding {
    size_t line = 0;
    size_t column = 0;  ///< 0 when it concerns the line as a whole
    std::string kind;   ///< malformed, not-finite, out-of-range, fold-over, jump, reach or repeated-request
    std::string text;
};

/// What is kept of one good line.
struct DumpFrame {
    size_t line = 0;
    uint64_t requestId = 0;
    double motion = 0;            ///< mean way of the points since the line before, in widths of the mesh
    std::optional<SideUse> used;  ///< of a grid whose sizes are known
};

struct DumpCheck {
    DumpKind kind = DumpKind::Grid;
    WarpSizes sizes;
    std::vector<DumpFinding> findings;  ///< by line
    std::vector<DumpFrame> frames;      ///< the good lines
    /// The mesh to be looked at: of the first line that folds over, or the last.
    std::vector<cv::Point2d> points;
    size_t pointsLine = 0;
};

/// Checks a dump from its first to its last line. The sizes are needed to tell reach beyond the input; an
/// input size that is not given is taken from the first line's header. Throws DumpError when the file is no
/// dump.
DumpCheck CheckDump(const std::filesystem::path& file, WarpSizes sizes);

}  // namespace desk
