#pragma once

#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <set>
#include <string>

#include "desk/base/guarded.h"

namespace desk {

/// The files that nodes hold open, in the folder that stands for the device's. Thread safe.
class Files {
public:
    static constexpr const char* DeviceDir = "/data/vendor/camera";

    explicit Files(std::filesystem::path folder);
    /// Closes what is still open.
    ~Files();

    /// As fopen, of a file in the folder.
    FILE* Open(const std::filesystem::path& name, const char* mode);
    bool IsOpen(FILE* file) const;
    /// As fclose; EOF for a file that is not open.
    int Close(FILE* file);
    size_t Count() const;

private:
    const std::filesystem::path folder_;
    Guarded<std::set<FILE*>> open_;
};

}  // namespace desk
