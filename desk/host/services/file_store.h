#pragma once

#include <cstdio>
#include <filesystem>
#include <mutex>
#include <set>
#include <string>

namespace desk {

/// The files that nodes hold open, below the folder that stands for /data/vendor/camera. Thread safe.
class FileStore {
public:
    /// The device's folder.
    static constexpr const char* DeviceDir = "/data/vendor/camera";

    explicit FileStore(std::filesystem::path dumpDir);

    const std::filesystem::path& DumpDir() const;
    /// Null when the path lies elsewhere than below DeviceDir or the file cannot be opened.
    FILE* Open(const std::string& devicePath, const char* mode);
    bool IsOpen(FILE* file) const;
    /// As fclose; EOF for a file that is not open.
    int Close(FILE* file);
    size_t OpenCount() const;
    void CloseAll();

private:
    std::filesystem::path dumpDir_;
    mutable std::mutex mutex_;
    std::set<FILE*> files_;
};

}  // namespace desk
