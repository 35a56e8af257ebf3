#include "desk/run/memory.h"

#include <sys/resource.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <limits>
#include <string>

namespace desk {
namespace {

/// The number behind a word, or at the file's start for no word; endless when there is none.
double NumberIn(const std::filesystem::path& file, const std::string& word = "") {
    std::ifstream in(file);
    for (std::string at; at != word && in >> at;) {
    }
    double number = 0;
    return in >> number ? number : std::numeric_limits<double>::infinity();
}

/// What the groups of processes that this one is in may take, bytes. Systems have them in either of two
/// forms.
double GroupLimit() {
    double least = std::numeric_limits<double>::infinity();
    std::ifstream groups("/proc/self/cgroup");
    for (std::string line; std::getline(groups, line);) {
        const std::string group = line.substr(line.rfind(':') + 1);
        for (const char* const root : {"/sys/fs/cgroup", "/sys/fs/cgroup/memory"}) {
            for (std::filesystem::path at = root + group; at != "/sys/fs"; at = at.parent_path()) {
                least =
                    std::min({least, NumberIn(at / "memory.max"), NumberIn(at / "memory.limit_in_bytes")});
            }
        }
    }
    return least;
}

}  // namespace

int64_t HeldFramesThatFit(cv::Size input, size_t inFlight) {
    // Measured in /proc/PID/status on clips of 320 x 240 and 1920 x 1080 and one or two cores. A frame that
    // is held takes 1.9 times its NV12 samples of memory and 2.8 times of addresses: it is mapped twice, and
    // a texture as well. A thread takes few pages but many addresses.
    constexpr double FrameShare = 3;
    constexpr double OtherFrames = 32;  // of reader, estimate, writer and spare buffers
    constexpr double MiB = 1 << 20;
    const double otherAddresses = 250 + 400.0 * cv::getNumberOfCPUs() + 70.0 * static_cast<double>(inFlight);
    const double otherMemory = 180;
    rlimit addresses = {};
    const bool isLimited = getrlimit(RLIMIT_AS, &addresses) == 0 && addresses.rlim_cur != RLIM_INFINITY;
    const double memory = std::min(NumberIn("/proc/meminfo", "MemAvailable:") * 1024, GroupLimit());
    const double room =
        std::min(memory - otherMemory * MiB,
                 isLimited ? static_cast<double>(addresses.rlim_cur) - otherAddresses * MiB : memory);
    const double frames = room / (FrameShare * 1.5 * input.area()) - OtherFrames;
    return static_cast<int64_t>(std::clamp(frames, -1.0, 1e6));
}

}  // namespace desk
