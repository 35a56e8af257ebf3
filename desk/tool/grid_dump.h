#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <opencv2/core.hpp>
#include <optional>
#include <vector>

#include "desk/tool/dump_file.h"
#include "host/lumnoderequest.h"

namespace desk {

/// A grid coordinate that is larger, in pixels either way, belongs to no picture.
constexpr double MaxGridCoordinate = 65536;

/// A whole grid dump that is fit to drive a node. Only the places of the lines are kept in memory.
class GridDump {
public:
    /// Reads the file once. Throws DumpError when it is no grid dump, a line is malformed, a coordinate is
    /// not finite or beyond MaxGridCoordinate, or a request id comes twice.
    explicit GridDump(const std::filesystem::path& file);

    /// Throws DumpError when a grid cannot have been made for an input of this size.
    void RequireInputSize(cv::Size input);

    /// Number of grids.
    size_t Size() const {
        return places_.size();
    }
    /// The n-th grid, from 0, enabled. n is less than Size().
    IPEICAGridTransform Grid(size_t n);
    uint64_t RequestId(size_t n) const {
        return requestIds_[n];
    }
    /// The number of the grid with this request id; empty when there is none.
    std::optional<size_t> Find(uint64_t requestId) const;

private:
    DumpLine Line(size_t n);

    DumpReader reader_;
    std::vector<DumpReader::Place> places_;
    std::vector<uint64_t> requestIds_;
    std::map<uint64_t, size_t> byRequest_;
};

}  // namespace desk
