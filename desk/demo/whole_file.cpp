#include "desk/demo/whole_file.h"

#include <fmt/format.h>

#include <fstream>
#include <stdexcept>

namespace desk {

void WriteWholeFile(const std::filesystem::path& file, std::string_view bytes) {
    std::filesystem::path unfinished = file;
    unfinished += ".unfinished";
    std::ofstream out(unfinished, std::ios::binary);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    out.close();
    if (!out) {
        std::error_code nothingLeft;
        std::filesystem::remove(unfinished, nothingLeft);
        throw std::runtime_error(fmt::format("{} cannot be written", file.string()));
    }
    std::filesystem::rename(unfinished, file);
}

}  // namespace desk
