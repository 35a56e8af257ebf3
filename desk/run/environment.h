#pragma once

#include <filesystem>
#include <opencv2/core.hpp>
#include <string>

namespace desk {

/// The node's library, and the folder of the system's libraries, which are built beside the program. Throw
/// std::runtime_error when they are not there.
std::filesystem::path NodeLibraryFile();
std::filesystem::path SystemLibraryFolder();

/// The name of what the desk's GL libraries render on. Throws std::runtime_error when they give no context,
/// UsageError when an input of this size is too large for them.
std::string RendererFor(cv::Size input);

}  // namespace desk
