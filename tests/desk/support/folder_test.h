#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

/// A test with a folder of its own, which goes when the test ends.
class FolderTest : public ::testing::Test {
protected:
    FolderTest() {
        std::string name = (std::filesystem::temp_directory_path() / "dewarp_desk_XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("no temporary folder can be made");
        }
        folder_ = name;
    }
    ~FolderTest() override {
        std::error_code nothingLeft;
        std::filesystem::remove_all(folder_, nothingLeft);
    }

    /// Writes a file into the folder and returns its path.
    std::filesystem::path Write(const std::string& name, const std::string& bytes) const {
        std::ofstream(folder_ / name, std::ios::binary) << bytes;
        return folder_ / name;
    }
    static std::string Bytes(const std::filesystem::path& file) {
        std::ostringstream bytes;
        bytes << std::ifstream(file, std::ios::binary).rdbuf();
        return bytes.str();
    }

    std::filesystem::path folder_;
};
