#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "host/lumnoderequest.h"

/// A test with a folder of its own, which goes when the test ends.
class ToolTest : public ::testing::Test {
protected:
    ToolTest();
    ~ToolTest() override;

    /// Writes a file into the folder and returns its path.
    std::filesystem::path Write(const std::string& name, const std::string& text) const;
    static std::string Read(const std::filesystem::path& file);

    std::filesystem::path folder_;
};

/// A grid that shows the input's middle, moved by some pixels.
IPEICAGridTransform ShiftGrid(int inputWidth, int inputHeight, float x, float y);

/// The line that a node dumps for a grid.
std::string GridLine(uint64_t requestId, const IPEICAGridTransform& grid);

/// A clean dump: the grids of a 400 x 300 input that sways by a few pixels, requests 1 to `count`.
std::vector<std::string> CleanLines(int count);
