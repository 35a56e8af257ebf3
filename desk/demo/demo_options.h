#pragma once

#include <cstdint>
#include <filesystem>
#include <opencv2/core.hpp>
#include <optional>
#include <string>

#include "desk/host/host_types.h"

namespace desk {

/// A photograph and what its author asks to be named with it.
struct PhotoSource {
    std::filesystem::path file;
    std::string author;
    std::string licence;
};

/// What the demo is asked to do.
struct DemoOptions {
    PhotoSource photo;
    std::filesystem::path out;
    cv::Size output;  ///< pixels, both even
    Margin margin{};  ///< of the output's size, by which the input is larger
    int frames = 0;
    uint32_t seed = 0;  ///< of the hand shake
    double framesPerSecond = 0;
};

/// Reads the command line. When there is nothing to run, prints the help or a sentence about what is wrong,
/// sets the exit status and returns nothing.
std::optional<DemoOptions> ReadDemoOptions(int argc, char** argv, int& exitStatus);

}  // namespace desk
