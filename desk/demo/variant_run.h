#pragma once

#include <filesystem>
#include <functional>

#include "desk/demo/report.h"

namespace desk {

/// Films the photo (8-bit BGR) with a shaking camera, takes every frame through a node of the given variant
/// and compares. The folder, which exists, gets the clips, the before/after picture and the node's dump
/// files. `progress` is called with the number of frames done. The result lacks the renderer.
/// Throws std::runtime_error with a sentence when something cannot be done.
VariantResult RunVariant(const DemoOptions& options, Variant variant, const cv::Mat& photo,
                         const std::filesystem::path& folder, const std::function<void(int)>& progress);

}  // namespace desk
