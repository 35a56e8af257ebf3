#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

/// A folder for clips, which goes when the test ends.
class Clips : public ::testing::Test {
protected:
    Clips() : folder_(std::filesystem::temp_directory_path() / ("dewarp_clips_" + std::to_string(getpid()))) {
        std::filesystem::create_directory(folder_);
    }
    ~Clips() override {
        std::filesystem::remove_all(folder_);
    }

    static std::string Bytes(const std::filesystem::path& file) {
        std::ostringstream bytes;
        bytes << std::ifstream(file, std::ios::binary).rdbuf();
        return bytes.str();
    }
    std::filesystem::path Write(const std::string& name, const std::string& bytes) const {
        std::ofstream(folder_ / name, std::ios::binary) << bytes;
        return folder_ / name;
    }

    std::filesystem::path folder_;
};
