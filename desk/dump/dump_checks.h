#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <opencv2/core.hpp>
#include <optional>
#include <string>
#include <vector>

#include "desk/dump/dump_file.h"
#include "desk/warp/sizing.h"
#include "desk/warp/warp_map.h"

namespace desk {

/// Findings, of which only the first of each kind are kept, and all are counted.
struct DumpFindings {
    static constexpr size_t MostOfAKind = 20;

    void Add(DumpFinding finding);
    size_t Count() const;

    std::vector<DumpFinding> first;
    std::map<std::string, size_t> counts;  ///< by kind
};

/// Finds repeated-request, reversed-request and gap among the request ids of all lines of a dump. One that
/// cannot be read, which is empty, fills a gap.
void CheckOrder(const std::vector<std::optional<uint64_t>>& requests, DumpFindings& findings);

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
    DumpFindings findings;          ///< by line
    std::vector<DumpFrame> frames;  ///< the good lines
    /// The mesh to be looked at: of the first line that folds over, or the last.
    std::vector<cv::Point2d> points;
    size_t pointsLine = 0;
};

/// Checks a dump from its first to its last line. The sizes are needed to tell reach beyond the input; an
/// input size that is not given is taken from the first line's header. Throws DumpError when the file is no
/// dump.
DumpCheck CheckDump(const std::filesystem::path& file, WarpSizes sizes);

}  // namespace desk
