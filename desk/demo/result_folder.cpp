#include "desk/demo/result_folder.h"

#include <fmt/format.h>
#include <fnmatch.h>

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace desk {
namespace {

bool IsResultOfDemo(const std::filesystem::path& file) {
    const std::array<const char*, 7> patterns = {"shaky.mp4",      "stabilised.mp4",   "before_after.jpg",
                                                 "report.json",    "Warp?_Grid_*.txt", "Warp?_Vert_*.txt",
                                                 "Warp?_Tex_*.txt"};
    const std::string name = file.filename().string();
    return std::any_of(patterns.begin(), patterns.end(),
                       [&name](const char* pattern) { return fnmatch(pattern, name.c_str(), 0) == 0; });
}

std::vector<std::filesystem::path> FilesIn(const std::filesystem::path& folder) {
    const std::filesystem::directory_iterator entries(folder);
    return {begin(entries), end(entries)};
}

}  // namespace

ResultFolder::ResultFolder(std::filesystem::path folder) : folder_(std::move(folder)), work_(folder_) {
    work_ += ".unfinished";
    std::error_code error;
    std::filesystem::remove_all(work_, error);
    std::filesystem::create_directories(folder_, error);
    std::filesystem::create_directory(work_, error);
    if (error || !std::filesystem::is_directory(folder_)) {
        throw std::runtime_error(
            fmt::format("the folder {} cannot be made: {}", folder_.string(), error.message()));
    }
}

ResultFolder::~ResultFolder() {
    std::error_code nothingLeft;
    std::filesystem::remove_all(work_, nothingLeft);
}

void ResultFolder::Publish() {
    RemoveEarlierRun();
    for (const auto& file : FilesIn(work_)) {
        std::filesystem::rename(file, folder_ / file.filename());
    }
}

void ResultFolder::RemoveEarlierRun() const {
    for (const auto& file : FilesIn(folder_)) {
        if (IsResultOfDemo(file)) {
            std::filesystem::remove(file);
        }
    }
}

}  // namespace desk
