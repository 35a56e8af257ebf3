#include "desk/tool/output_place.h"

#include <fmt/format.h>
#include <fnmatch.h>

#include <fstream>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "desk/tool/errors.h"
#include "desk/tool/options.h"

namespace desk {
namespace {

/// What stands at the place is about to be removed: nobody's own files go with it.
void RequireOnlyPictures(const std::filesystem::path& folder) {
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        if (fnmatch("[0-9][0-9][0-9][0-9][0-9][0-9].png", entry.path().filename().c_str(), 0) != 0) {
            throw UsageError(fmt::format("{} holds {}; only a folder of numbered pictures is replaced",
                                         folder.string(), entry.path().filename().string()));
        }
    }
}

}  // namespace

OutputPlace::OutputPlace(std::filesystem::path place, Kind kind, bool overwrite) : place_(std::move(place)) {
    if (!place_.has_filename()) {
        place_ = place_.parent_path();
    }
    RequireFree(place_, overwrite);
    const bool isFolder = std::filesystem::is_directory(place_);
    if (isFolder && kind == Kind::File) {
        throw UsageError(fmt::format("{} is a folder; expected the name of a file", place_.string()));
    }
    if (isFolder) {
        RequireOnlyPictures(place_);
    }
    std::error_code error;
    work_ = place_;
    work_ += ".unfinished";
    std::filesystem::remove_all(work_, error);
    const bool isMade = kind == Kind::File ? static_cast<bool>(std::ofstream(work_))
                                           : std::filesystem::create_directory(work_, error);
    if (!isMade) {
        throw std::runtime_error(fmt::format("{} cannot be made: {}", place_.string(),
                                             std::error_code(errno, std::generic_category()).message()));
    }
}

OutputPlace::~OutputPlace() {
    std::error_code nothingLeft;
    std::filesystem::remove_all(work_, nothingLeft);
}

void OutputPlace::Publish() {
    std::error_code error;
    if (std::filesystem::is_directory(place_)) {
        std::filesystem::remove_all(place_, error);
    }
    std::filesystem::rename(work_, place_, error);
    if (error) {
        throw std::runtime_error(
            fmt::format("{} cannot be put in place: {}", place_.string(), error.message()));
    }
}

void WriteWhole(const std::filesystem::path& file, const std::string& bytes, bool overwrite) {
    OutputPlace output(file, OutputPlace::Kind::File, overwrite);
    std::ofstream out(output.Work(), std::ios::binary);
    out << bytes;
    out.close();
    if (!out) {
        throw std::runtime_error(fmt::format("{} cannot be written", file.string()));
    }
    output.Publish();
}

}  // namespace desk
