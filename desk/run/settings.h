#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "desk/abi/node_types.h"
#include "desk/clip/clip_reader.h"
#include "desk/clip/clip_writer.h"
#include "desk/run/progress.h"

namespace desk {

/// What the program's exit status says. Interrupted is what a shell reports for SIGINT.
enum ExitCode { Done = 0, CheckFailed = 1, WrongUse = 2, WrongEnvironment = 3, WasInterrupted = 130 };

/// How a clip goes through the node, and what is made of it. What is not asked for is empty.
struct RunOptions {
    std::filesystem::path clip;
    FrameRange frames;                              ///< of the clip
    Orientation orientation = Orientation::Stored;  ///< of the clip
    double folderRate = ClipReader::UsualRate;      ///< of a folder of pictures, frames per second
    Encoding encoding;                              ///< of the clips that are written
    OnDamage onDamage = OnDamage::Stop;             ///< of the clip
    Variant variant = Variant::RealTime;
    size_t inFlight = 1;              ///< requests in the node at a time
    uint32_t luxBits = 0;             ///< levels of the node's log
    std::filesystem::path library;    ///< the node's; empty: the one built beside the program
    std::filesystem::path dumpDir;    ///< where the node's dump files go; empty switches them off
    std::filesystem::path out;        ///< clip of the node's output
    std::filesystem::path before;     ///< clip of the input's middle, as large as the output
    std::filesystem::path compare;    ///< clip of before and after side by side
    std::filesystem::path truth;      ///< clip of the output as it should be
    std::optional<double> maxMotion;  ///< limit between frames of the output, pixels RMS
    std::optional<double> minPsnr;    ///< limit of the luma against the truth, dB
    std::filesystem::path json;       ///< file for the results, "-" for stdout
    std::filesystem::path report;     ///< folder for the report
    std::string credit;               ///< line under the picture before and after; ASCII
    ProgressKind progress = ProgressKind::Auto;
    bool overwrite = false;

    ClipReader Open(const std::filesystem::path& read) const {
        return {read, frames, onDamage, orientation, folderRate};
    }
    /// Whether something that is made goes there, so that nothing else may.
    bool TakesStdout() const {
        return json == StdStream || out == StdStream || before == StdStream || compare == StdStream;
    }
};

}  // namespace desk
