#include "desk/tool/output_place.h"

#include <fmt/format.h>
#include <fnmatch.h>

#include <cerrno>
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

[[noreturn]] void Fail(const std::filesystem::path& place, const char* what, int error) {
    throw std::runtime_error(fmt::format("{} cannot be {}: {}", place.string(), what, ReasonText(error)));
}

}  // namespace

OutputPlace::OutputPlace(std::filesystem::path place, Kind kind, bool overwrite)
    : place_(std::move(place)), kind_(kind) {
    if (!place_.has_filename()) {
        place_ = place_.parent_path();
    }
    std::error_code error;
    const bool isFolder = std::filesystem::is_directory(place_, error);
    if (isFolder && kind == Kind::File) {
        throw UsageError(fmt::format("{} is a folder; expected the name of a file", place_.string()));
    }
    if (kind != Kind::DumpFolder) {
        RequireFree(place_, overwrite);
    }
    if (isFolder && kind == Kind::PictureFolder) {
        RequireOnlyPictures(place_);
    }
    work_ = place_;
    if (kind == Kind::DumpFolder) {
        MakeFolder(place_);
        work_ /= "unfinished";
    } else {
        work_ += ".unfinished";
    }
    std::filesystem::remove_all(work_, error);
    if (kind == Kind::File ? !std::ofstream(work_) : !std::filesystem::create_directory(work_, error)) {
        Fail(place_, "made", errno);
    }
}

OutputPlace::~OutputPlace() {
    std::error_code nothingLeft;
    std::filesystem::remove_all(work_, nothingLeft);
}

void OutputPlace::Publish() {
    std::error_code error;
    if (kind_ == Kind::DumpFolder) {
        for (const auto& entry : std::filesystem::directory_iterator(work_)) {
            std::filesystem::rename(entry, place_ / entry.path().filename(), error);
            if (error) {
                Fail(place_ / entry.path().filename(), "put in place", error.value());
            }
        }
        return;
    }
    if (std::filesystem::is_directory(place_)) {
        std::filesystem::remove_all(place_, error);
    }
    std::filesystem::rename(work_, place_, error);
    if (error) {
        Fail(place_, "put in place", error.value());
    }
}

void WriteWhole(const std::filesystem::path& file, const std::string& bytes, bool overwrite) {
    OutputPlace output(file, OutputPlace::Kind::File, overwrite);
    std::ofstream out(output.Work(), std::ios::binary);
    out << bytes;
    out.close();
    if (!out) {
        Fail(file, "written", errno);
    }
    output.Publish();
}

void MakeFolder(const std::filesystem::path& folder) {
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error) {
        Fail(folder, "made", error.value());
    }
}

std::string ReasonText(int error) {
    const char* expected = error == EACCES || error == EROFS ? "; expected a folder that may be written to"
                           : error == ENOSPC                 ? "; expected room for all of it"
                           : error == ENOENT || error == ENOTDIR ? "; expected a folder that exists"
                                                                 : "";
    return std::error_code(error, std::generic_category()).message() + expected;
}

}  // namespace desk
