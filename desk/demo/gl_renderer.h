#pragma once

#include <filesystem>
#include <string>

namespace desk {

/// The name of the renderer behind the desk's GL libraries, which lie in the given folder; empty when they
/// give no context.
std::string GlRenderer(const std::filesystem::path& libraryDir);

}  // namespace desk
