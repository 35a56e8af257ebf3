#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <opencv2/core.hpp>
#include <vector>

#include "host/lumnoderequest.h"

namespace desk {

/// A whole grid dump that is fit to drive a node.
class GridDump {
public:
    /// Throws DumpError when the file is no grid dump, a line is malformed or has a bad value, a request id
    /// comes twice, or a grid cannot have been made for an input of this size; and unless lines are found by
    /// their request ids, when these do not rise by one from line to line.
    GridDump(const std::filesystem::path& file, cv::Size input, bool byRequest);

    struct Line {
        uint64_t requestId;
        IPEICAGridTransform grid;  ///< enabled
    };
    /// By request id; there is at least one.
    const std::vector<Line>& Lines() const {
        return lines_;
    }
    /// The line with this request id; null when there is none.
    const Line* Find(uint64_t requestId) const;

private:
    std::vector<Line> lines_;
};

}  // namespace desk
