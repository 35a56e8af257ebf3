#include "desk/run/progress.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <string>

namespace desk {
namespace {

std::atomic<bool> isInterrupted = false;

extern "C" void NoteInterrupt(int /*signal*/) {
    isInterrupted = true;
}

}  // namespace

void CatchInterrupts() {
    struct sigaction action = {};
    action.sa_handler = &NoteInterrupt;
    action.sa_flags = static_cast<int>(SA_RESTART | SA_RESETHAND);  // a second one ends the program at once
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

bool Interrupted() {
    return isInterrupted;
}

bool InterruptedAtOnce(int64_t done) {
    const bool isAtOnce = isInterrupted && done == 0;
    if (isAtOnce) {
        fmt::print(stderr, "dewarp-desk: interrupted before the first frame; nothing was made\n");
    }
    return isAtOnce;
}

Progress::Progress(ProgressKind kind, int64_t expected)
    : kind_(kind), expected_(expected), start_(std::chrono::steady_clock::now()), shown_(start_) {
    if (kind_ == ProgressKind::Auto) {
        kind_ = isatty(STDERR_FILENO) == 1 ? ProgressKind::Bar : ProgressKind::Pipe;
    }
}

void Progress::Step(int64_t done, bool last) {
    constexpr std::chrono::milliseconds Pause(500);
    const auto now = std::chrono::steady_clock::now();
    if (!last && now - shown_ < Pause) {
        return;
    }
    shown_ = now;
    const double seconds = std::chrono::duration<double>(shown_ - start_).count();
    const double rate = seconds > 0 ? static_cast<double>(done) / seconds : 0;
    if (kind_ == ProgressKind::Pipe) {
        fmt::print(stderr, "frame={}\nframes={}\nfps={:.2f}\nelapsed_s={:.2f}\nprogress={}\n", done,
                   expected_, rate, seconds, last ? "end" : "continue");
    } else if (kind_ == ProgressKind::Bar) {
        constexpr int64_t Width = 40;
        const int64_t all = std::max<int64_t>({expected_, last ? done : 0, 1});
        const auto filled = static_cast<size_t>(Width * std::min(done, all) / all);
        fmt::print(stderr, "\r[{:<{}}] {}{} frames, {:.1f} per second{}", std::string(filled, '#'), Width,
                   done, expected_ > 0 ? fmt::format(" of {}", expected_) : "", rate, last ? "\n" : "");
    }
}

}  // namespace desk
