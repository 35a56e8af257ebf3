#pragma once

#include <filesystem>

namespace desk {

/// A folder whose contents change only when new ones are complete. They are made in a work folder beside it.
class ResultFolder {
public:
    /// Makes the folder, unless it exists, and an empty work folder. Throws std::runtime_error.
    explicit ResultFolder(std::filesystem::path folder);
    /// Removes the work folder and what is still in it.
    ~ResultFolder();
    ResultFolder(const ResultFolder&) = delete;
    ResultFolder& operator=(const ResultFolder&) = delete;

    /// Where new files are made.
    const std::filesystem::path& Work() const {
        return work_;
    }

    /// Removes what an earlier run of the demo left in the folder, nothing else, and moves the new files in.
    void Publish();

private:
    void RemoveEarlierRun() const;

    std::filesystem::path folder_;
    std::filesystem::path work_;
};

}  // namespace desk
