#include "desk/run/memory.h"

#include <sys/resource.h>

#include <algorithm>
#include <fstream>
#include <limits>
#include <string>

namespace desk {
namespace {

constexpr double MiB = 1 << 20;

/// The number after a word at a line's start, or at the file's start for no word; endless when there is none.
double NumberIn(const std::string& file, const std::string& word = "") {
    std::ifstream in(file);
    std::string at;
    double number = 0;
    while (!word.empty() && at != word && in >> at) {
    }
    return in >> number ? number : std::numeric_limits<double>::infinity();
}

/// What the groups that the process is in may take, bytes.
double GroupLimit() {
    std::ifstream groups("/proc/self/cgroup");
    double least = std::numeric_limits<double>::infinity();
    for (std::string line; std::getline(groups, line);) {
        const bool isSecond = line.rfind("0::", 0) == 0;  // of the two forms that the system has of them
        const size_t name = line.find(":memory:");
        if (isSecond || name != std::string::npos) {
            const std::string root = isSecond ? "/sys/fs/cgroup" : "/sys/fs/cgroup/memory";
            const char* const limit = isSecond ? "/memory.max" : "/memory.limit_in_bytes";
            for (std::string at = line.substr(line.rfind(':') + 1);; at.erase(at.rfind('/'))) {
                least = std::min(least, NumberIn(root + at + limit));
                if (at.empty()) {
                    break;
                }
            }
        }
    }
    return least;
}

}  // namespace

int64_t HeldFramesThatFit(cv::Size input) {
    // Measured with /proc/PID/status on clips of 320 x 240 and 1920 x 1080: a frame that is held takes 1.9
    // times its NV12 samples of memory and 2.8 times of addresses, being mapped twice and a texture as well.
    constexpr double FrameShare = 3;
    constexpr double OtherFrames = 32;  // of reader, writer, estimate and spare buffers
    constexpr double OtherMemory = 180 * MiB;
    constexpr double OtherAddresses = 900 * MiB;
    rlimit addresses = {};
    const bool isLimited = getrlimit(RLIMIT_AS, &addresses) == 0 && addresses.rlim_cur != RLIM_INFINITY;
    const double memory = std::min(NumberIn("/proc/meminfo", "MemAvailable:") * 1024, GroupLimit());
    const double room = std::min(
        memory - OtherMemory, isLimited ? static_cast<double>(addresses.rlim_cur) - OtherAddresses : memory);
    const double frames = room / (FrameShare * 1.5 * input.area()) - OtherFrames;
    return static_cast<int64_t>(std::clamp(frames, -1.0, 1e6));
}

}  // namespace desk
