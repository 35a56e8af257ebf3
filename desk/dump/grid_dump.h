#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <opencv2/core.hpp>

#include "host/lumnoderequest.h"

namespace desk {

/// The grids of a whole grid dump that is fit to drive a node, enabled, by their request ids; there is at
/// least one. Throws DumpError when the file is no grid dump, a line is malformed or has a bad value, a
/// request id comes twice, or a grid cannot have been made for an input of this size; and unless lines are
/// found by their request ids, when these do not rise by one from line to line.
std::map<uint64_t, IPEICAGridTransform> ReadGrids(const std::filesystem::path& file, cv::Size input,
                                                  bool byRequest);

}  // namespace desk
