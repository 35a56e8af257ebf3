#pragma once

#include <cstdint>
#include <filesystem>
#include <opencv2/core.hpp>
#include <string>

#include "desk/host/variant.h"

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

/// Reads the command line. Throws CLI::ParseError, which CLI::App::exit turns into help or an error text.
DemoOptions ReadDemoOptions(int argc, char** argv);

}  // namespace desk
