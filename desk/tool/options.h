#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <limits>
#include <opencv2/core.hpp>
#include <optional>
#include <string>

#include "desk/host/host_types.h"

namespace CLI {
class App;
}

namespace desk {

/// Frames first to end - 1 of a clip, counted from 0.
struct FrameRange {
    int64_t first = 0;
    int64_t end = std::numeric_limits<int64_t>::max();
};

/// What a clip's damage does to the run: it ends, or the damaged frames are left out.
enum class OnDamage { Stop, Skip };

enum class ProgressKind { Auto, Bar, Pipe, None };

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

/// What the command line asks for; returns the exit code. Set by the subcommand that was named.
using ChosenCommand = std::function<int()>;

/// Adds a subcommand with its example, which is shown below the help.
CLI::App& AddCommand(CLI::App& app, const std::string& name, const std::string& description,
                     const std::string& example);

/// Adds the common options to a subcommand. `options` outlives the parsing.
void AddCommonOptions(CLI::App& command, CommonOptions& options);

/// Adds the options of how frames are driven through the node, likewise.
void AddNodeOptions(CLI::App& command, RunOptions& options);

/// Adds -o, which the command needs, and the options of what is recorded, likewise.
void AddRecordingOptions(CLI::App& command, RunOptions& options);

/// Throws UsageError when the file or folder exists and may not be overwritten.
void RequireFree(const std::filesystem::path& place, bool overwrite);

}  // namespace desk
