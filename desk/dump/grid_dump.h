#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <opencv2/core.hpp>
#include <optional>
#include <vector>

#include "host/lumnoderequest.h"

namespace desk {

/// A whole grid dump that is fit to drive a node.
class GridDump {
public:
    /// Throws DumpError when the file is no grid dump, a line is malformed or has a bad value, a request id
    /// comes twice, or a grid cannot have been made for an input of this size.
    GridDump(const std::filesystem::path& file, cv::Size input);

    struct Line {
        uint64_t requestId;
        IPEICAGridTransform grid;  ///< enabled
    };
    const std::vector<Line>& Lines() const {
        return lines_;
    }
    /// The number, from 0, of the line with this request id; empty when there is none.
    std::optional<size_t> Find(uint64_t requestId) const;

private:
    std::vector<Line> lines_;
    std::map<uint64_t, size_t> byRequest_;
};

}  // namespace desk
