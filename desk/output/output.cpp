#include "desk/output/output.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <fnmatch.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <fstream>
#include <map>
#include <random>
#include <stdexcept>
#include <system_error>
#include <utility>
#include <vector>

#include "desk/base/usage_error.h"

namespace desk {
namespace {

using Path = std::filesystem::path;

[[noreturn]] void Fail(const Path& place, const char* what, int error) {
    throw std::runtime_error(fmt::format("{} cannot be {}: {}", place.string(), what, ReasonText(error)));
}

/// Also when it is a link that leads nowhere.
bool IsThere(const Path& place) {
    std::error_code unknown;
    return std::filesystem::exists(std::filesystem::symlink_status(place, unknown));
}

/// The place's only name, whichever links lead there. It need not be there.
Path Whole(const Path& place) {
    std::error_code unknown;
    const Path whole = std::filesystem::weakly_canonical(std::filesystem::absolute(place), unknown);
    return whole.has_filename() ? whole : whole.parent_path();
}

/// What two names of one thing have in common: the file, or the name that it will get.
std::string Identity(const Path& place) {
    struct stat status = {};
    if (stat(place.c_str(), &status) == 0) {
        return fmt::format("{}:{}", status.st_dev, status.st_ino);
    }
    std::string name = Whole(place).string();
    std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) { return std::tolower(c); });
    return name;
}

/// Whether it is a file such as a run makes in a folder of this kind.
bool IsMadeIn(Output::Kind folder, const std::filesystem::directory_entry& entry) {
    const char* names =
        folder == Output::Kind::DumpFolder ? "Warp*.txt" : "[0-9][0-9][0-9][0-9][0-9][0-9].png";
    return fnmatch(names, entry.path().filename().c_str(), 0) == 0 &&
           entry.symlink_status().type() == std::filesystem::file_type::regular;
}

/// Why what stands at the place may not be replaced; empty when it may. Nobody's own files go with it.
std::string ReasonToStay(const Path& place, Output::Kind kind) {
    if (kind == Output::Kind::File) {
        return std::filesystem::is_regular_file(place)
                   ? ""
                   : place.string() + " is no regular file; expected the name of one";
    }
    constexpr const char* Expected = "only a folder of numbered pictures is replaced";
    if (!std::filesystem::is_directory(place)) {
        return fmt::format("{} is no folder; {}", place.string(), Expected);
    }
    for (const auto& entry : std::filesystem::directory_iterator(place)) {
        if (!IsMadeIn(kind, entry)) {
            return fmt::format("{} holds {}; {}", place.string(), entry.path().filename().string(), Expected);
        }
    }
    return "";
}

/// Makes an empty file or folder beside the place, under a name that nothing has, and with the rights that
/// new files and folders have, which those of mkstemp and mkdtemp have not.
Path MakeBeside(const Path& place, bool isFolder) {
    std::random_device random;
    for (;;) {
        const Path made = fmt::format("{}.unfinished-{:06}", place.string(), random() % 1000000);
        const int result = isFolder ? mkdir(made.c_str(), 0777)
                                    : open(made.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (result >= 0) {
            if (!isFolder) {
                close(result);
            }
            return made;
        }
        if (errno != EEXIST) {
            Fail(place, "made", errno);
        }
    }
}

/// Removes a file, or a folder with what a run makes in it. What somebody else put there stays, and with it
/// the folder.
void Remove(const Path& made, Output::Kind kind) {
    std::error_code left;
    if (kind != Output::Kind::File) {
        for (const auto& entry : std::filesystem::directory_iterator(made, left)) {
            if (IsMadeIn(kind, entry)) {
                std::filesystem::remove(entry, left);
            }
        }
    }
    std::filesystem::remove(made, left);
}

/// As renameat2 renames with these flags. Returns 0 or the error, as errno has it; so do the next two.
int Rename(const Path& from, const Path& to, unsigned int flags = 0) {
    return renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), flags) == 0 ? 0 : errno;
}

bool IsUnknownToFileSystem(int error) {
    return error == EINVAL || error == ENOSYS;
}

/// Replaces nothing, not even what came a moment ago: EEXIST.
int RenameToFree(const Path& from, const Path& to) {
    const int error = Rename(from, to, RENAME_NOREPLACE);
    if (!IsUnknownToFileSystem(error)) {
        return error;
    }
    if (std::filesystem::is_directory(from)) {
        return mkdir(to.c_str(), 0777) == 0 ? Rename(from, to) : errno;
    }
    return link(from.c_str(), to.c_str()) == 0 && unlink(from.c_str()) == 0 ? 0 : errno;
}

/// All files of a folder go into another, or none does: 0, or the error and the file that it is about.
std::pair<int, Path> MoveAll(const Path& from, const Path& to) {
    std::vector<Path> moved;
    for (const auto& entry : std::filesystem::directory_iterator(from)) {
        const Path file = entry.path().filename();
        if (const int error = RenameToFree(from / file, to / file); error != 0) {
            for (const Path& back : moved) {
                RenameToFree(to / back, from / back);
            }
            return {error, to / file};
        }
        moved.push_back(file);
    }
    return {0, to};
}

/// Each gets the other's name.
int Exchange(const Path& one, const Path& other) {
    int error = Rename(one, other, RENAME_EXCHANGE);
    if (!IsUnknownToFileSystem(error)) {
        return error;
    }
    const Path aside = one.string() + ".replaced";
    error = RenameToFree(other, aside);
    if (error != 0) {
        return error;
    }
    error = Rename(one, other);
    return error == 0 ? Rename(aside, one) : (Rename(aside, other), error);
}

}  // namespace

void RequireFree(const Path& place, bool overwrite) {
    const std::string folder = Whole(std::filesystem::absolute(place).parent_path()).string() + "/";
    std::error_code unknown;
    if (folder == "/dev/" || folder.rfind("/proc/", 0) == 0 || std::filesystem::is_other(place, unknown)) {
        throw UsageError(place.string() +
                         " is a device or a pipe, which is not replaced; expected the name of a file");
    }
    if (!overwrite && IsThere(place)) {
        throw UsageError(fmt::format("{} exists; -y replaces it", place.string()));
    }
}

void RequireApart(const std::vector<Path>& inputs, const std::vector<Path>& outputs) {
    std::map<Path, const char*> taken;
    std::map<std::string, const char*> known;
    for (const Path& input : inputs) {
        taken[Whole(input)] = known[Identity(input)] = "read";
        std::error_code none;
        for (const auto& picture : std::filesystem::directory_iterator(input, none)) {
            known[Identity(picture)] = "read";
        }
    }
    for (const Path& output : outputs) {
        const auto [other, isFree] = known.emplace(Identity(output), "named for another output");
        if (!isFree) {
            throw UsageError(fmt::format("{} is {}; expected another name for the output", output.string(),
                                         other->second));
        }
        taken.emplace(Whole(output), other->second);
    }
    for (const Path& output : outputs) {
        const Path folder = Whole(output) / "";
        // What lies in it follows it in order.
        const auto inner = taken.lower_bound(folder);
        if (inner != taken.end() && inner->first.string().rfind(folder.string(), 0) == 0) {
            throw UsageError(fmt::format("{}, which is {}, lies in {}; expected another name for the output",
                                         inner->first.string(), inner->second, output.string()));
        }
    }
}

Output::Output(std::filesystem::path place, Kind kind, bool overwrite)
    : place_(std::move(place)), kind_(kind), overwrite_(overwrite) {
    if (!place_.has_filename()) {
        place_ = place_.parent_path();
    }
    if (kind == Kind::DumpFolder) {
        folder_.emplace(place_);
        work_ = MakeBeside(place_ / "dumps", true);
        return;
    }
    RequireFree(place_, overwrite);
    if (IsThere(place_)) {
        if (const std::string reason = ReasonToStay(place_, kind); !reason.empty()) {
            throw UsageError(reason);
        }
        // What a link leads to is replaced, not the link.
        place_ = std::filesystem::is_symlink(place_) ? std::filesystem::canonical(place_) : place_;
    }
    work_ = MakeBeside(place_, kind == Kind::PictureFolder);
}

Output::~Output() {
    if (!work_.empty()) {
        Remove(work_, kind_);
    }
}

void Output::Publish() {
    // It is complete, and not to be lost when it does not get its name.
    const Path made = std::exchange(work_, {});
    const std::string kept = "; what was made is in " + made.string();
    const auto require = [&](int error, const Path& place) {
        if (error == EEXIST) {
            throw UsageError(fmt::format("{} exists{}{}", place.string(),
                                         kind_ == Kind::DumpFolder ? "" : "; -y replaces it", kept));
        }
        if (error != 0) {
            throw std::runtime_error(
                fmt::format("{} cannot be put in place: {}{}", place.string(), ReasonText(error), kept));
        }
    };
    if (kind_ == Kind::DumpFolder) {
        const auto [error, file] = MoveAll(made, place_);
        require(error, file);
        Remove(made, kind_);
    } else if (!overwrite_ || !IsThere(place_)) {
        require(RenameToFree(made, place_), place_);
    } else if (const std::string reason = ReasonToStay(place_, kind_); !reason.empty()) {
        throw UsageError(reason + kept);
    } else if (kind_ == Kind::File) {
        require(Rename(made, place_), place_);
    } else {
        require(Exchange(made, place_), place_);
        Remove(made, kind_);  // which is now what was replaced
    }
}

void WriteWhole(const std::filesystem::path& file, const std::string& bytes, bool overwrite) {
    Output output(file, Output::Kind::File, overwrite);
    std::ofstream out(output.Work(), std::ios::binary);
    out << bytes;
    out.close();
    if (!out) {
        Fail(file, "written", errno);
    }
    output.Publish();
}

Folder::Folder(const Path& place) : Folder() {
    Path at;
    for (const Path& name : place) {
        at /= name;
        // A folder that is there is no error, nor is one that somebody else makes at the same time.
        std::error_code error;
        if (std::filesystem::create_directory(at, error)) {
            made_.insert(made_.begin(), at);
        } else if (error) {
            Fail(place, "made", error == std::errc::file_exists ? ENOTDIR : error.value());
        }
    }
}

Folder::~Folder() {
    for (const Path& made : made_) {
        static_cast<void>(rmdir(made.c_str()));  // never a file, nor a folder that holds something
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
