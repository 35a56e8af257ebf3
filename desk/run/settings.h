#pragma once

#include <cstdint>
#include <filesystem>
#include <opencv2/core.hpp>
#include <optional>
#include <string>

#include "desk/abi/node_types.h"
#include "desk/clip/clip_reader.h"
#include "desk/run/progress.h"

namespace desk {

/// The options that every command has. What a command does not use it accepts and leaves alone.
struct CommonOptions {
    Variant variant = Variant::RealTime;
    std::optional<cv::Size> size;   ///< of the output, pixels
    std::optional<Margin> margin;   ///< fractions of the output
    FrameRange frames;              ///< of the clip
    std::filesystem::path dumpDir;  ///< where the node's dump files go; empty switches them off
    std::string json;               ///< file for the results, "-" for stdout, empty for none
    std::filesystem::path report;   ///< folder for the report; empty for none
    bool compare = false;           ///< the output shows before and after side by side
    uint32_t luxBits = 1 | 2;       ///< levels of the node's log
    ProgressKind progress = ProgressKind::Auto;
    bool overwrite = false;
};

/// The options of commands that take a clip through the node. What is not asked for is empty.
struct RunOptions : CommonOptions {
    std::filesystem::path clip;
    std::filesystem::path out;           ///< clip of the node's output
    std::filesystem::path before;        ///< clip of the input's middle, as large as the output
    std::filesystem::path truth;         ///< clip of the output as it should be
    std::optional<double> maxMotion;     ///< limit between frames of the output, pixels RMS
    std::optional<double> minPsnr;       ///< limit of the luma against the truth, dB
    std::string credit;                  ///< line under the picture before and after; ASCII
    size_t inFlight = 1;                 ///< requests in the node at a time
    OnDamage onDamage = OnDamage::Stop;  ///< of the clip
};

}  // namespace desk
