#pragma once

#include <filesystem>
#include <string>

namespace desk {

/// A file, or a folder of numbered pictures, that appears under its name when it is complete. Until then it
/// grows under a temporary name beside it.
class OutputPlace {
public:
    enum class Kind { File, PictureFolder };

    /// Throws as RequireFree does; UsageError for a folder to be replaced that holds anything but numbered
    /// pictures; std::runtime_error when nothing can be made there.
    OutputPlace(std::filesystem::path place, Kind kind, bool overwrite);
    /// Removes what was not published.
    ~OutputPlace();
    OutputPlace(const OutputPlace&) = delete;
    OutputPlace& operator=(const OutputPlace&) = delete;

    /// The temporary file or folder.
    const std::filesystem::path& Work() const {
        return work_;
    }
    const std::filesystem::path& Place() const {
        return place_;
    }
    /// Throws std::runtime_error when it cannot be put under its name.
    void Publish();

private:
    std::filesystem::path place_;
    std::filesystem::path work_;
};

/// Writes a file that is complete or not there. Throws as OutputPlace does; std::runtime_error.
void WriteWhole(const std::filesystem::path& file, const std::string& bytes, bool overwrite);

}  // namespace desk
