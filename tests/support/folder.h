#pragma once

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

/// A folder among the system's temporary files, which goes with all that is in it.
class TemporaryFolder {
public:
    TemporaryFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "dewarp-test-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("cannot make the folder " + name);
        }
        path = name;
    }
    ~TemporaryFolder() {
        std::error_code nothingLeft;
        std::filesystem::remove_all(path, nothingLeft);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    std::filesystem::path path;
};
