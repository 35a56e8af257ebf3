#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "tests/support/folder.h"

/// A test with a folder of its own, which goes when the test ends.
class FolderTest : public ::testing::Test {
protected:
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

    const TemporaryFolder folder;
    const std::filesystem::path& folder_ = folder.path;
};
