#pragma once

#include <filesystem>
#include <string_view>

namespace desk {

/// Writes the bytes to a file that appears complete or not at all. Throws std::runtime_error.
void WriteWholeFile(const std::filesystem::path& file, std::string_view bytes);

}  // namespace desk
