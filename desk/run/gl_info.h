#pragma once

#include <filesystem>
#include <string>

namespace desk {

/// What the desk's GL libraries run on.
struct GlInfo {
    std::string renderer;    ///< its name; empty when the libraries give no context
    int maxTextureSize = 0;  ///< pixels each way
};

/// Asks the desk's GL libraries, which lie in the given folder.
GlInfo DescribeGl(const std::filesystem::path& libraryDir);

}  // namespace desk
