#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace desk {

/// Throws UsageError for a device, a pipe or a socket, and for what the system shows as files in /dev and
/// /proc; and when the file or folder exists and may not be overwritten.
void RequireFree(const std::filesystem::path& place, bool overwrite);

/// Throws UsageError when an output has the name of something that is read, a picture of a folder included,
/// or of another output, or when one of these lies in it. Names are the same whichever links lead to a file,
/// hard ones included; of two outputs also when they differ in case alone.
void RequireApart(const std::vector<std::filesystem::path>& inputs,
                  const std::vector<std::filesystem::path>& outputs);

/// A folder, made with those that it lies in unless they are there. What was made of them and is empty in the
/// end goes again.
class Folder {
public:
    /// Throws std::runtime_error.
    explicit Folder(const std::filesystem::path& place);
    ~Folder();
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

private:
    Folder() = default;

    std::vector<std::filesystem::path> made_;  ///< the innermost first
};

/// A file, a folder of numbered pictures, or files for a folder of dumps, which keeps those it has. What is
/// made appears under its name when it is complete; until then it grows beside it under a name that nothing
/// had, NAME.unfinished- and six digits, dumps in a folder of such a name in theirs. What stands at the place
/// stays as it is until then, and nothing is removed that was not made here.
class Output {
public:
    enum class Kind { File, PictureFolder, DumpFolder };

    /// Throws as RequireFree does, but not for a folder of dumps; UsageError for something to be replaced
    /// that is not of this kind, such as a folder that holds anything but numbered pictures;
    /// std::runtime_error when nothing can be made there.
    Output(std::filesystem::path place, Kind kind, bool overwrite);
    /// Removes what was made, unless Publish was called.
    ~Output();
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    /// The temporary file or folder; empty once published.
    const std::filesystem::path& Work() const {
        return work_;
    }
    const std::filesystem::path& Place() const {
        return place_;
    }
    /// Puts it under its name. What cannot be put there stays under the temporary name, which the sentence
    /// tells. Throws UsageError when something has the name that may not be replaced, of dumps always;
    /// std::runtime_error.
    void Publish();

private:
    std::filesystem::path place_;
    std::optional<Folder> folder_;  ///< of dumps
    std::filesystem::path work_;
    Kind kind_;
    bool overwrite_;
};

/// Writes a file that is complete or not there. Throws as Output does; std::runtime_error.
void WriteWhole(const std::filesystem::path& file, const std::string& bytes, bool overwrite);

/// An error of the system, as errno has it, in words: what it is, and what was expected of the place instead.
std::string ReasonText(int error);

}  // namespace desk
