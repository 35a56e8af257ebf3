#include "desk/run/progress.h"

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <string>

#include "desk/output/say.h"

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
    struct sigaction before = {};
    if (sigaction(SIGHUP, nullptr, &before) == 0 && before.sa_handler != SIG_IGN) {  // as nohup has it
        sigaction(SIGHUP, &action, nullptr);
    }
}

bool Interrupted() {
    return isInterrupted;
}

Progress::Progress(ProgressKind kind, int64_t expected)
    : kind_(kind), expected_(expected), start_(std::chrono::steady_clock::now()) {
    if (kind_ == ProgressKind::Auto) {
        kind_ = isatty(STDERR_FILENO) == 1 ? ProgressKind::Bar : ProgressKind::None;
    }
}

void Progress::Step(int64_t done) {
    constexpr std::chrono::milliseconds Pause(500);
    if (std::chrono::steady_clock::now() - shown_ >= Pause) {
        Show(done, false);
    }
}

bool Progress::End(int64_t done) {
    Show(done, true);
    if (isInterrupted && done == 0) {
        Say(stderr, "dewarp-desk: interrupted before the first frame; nothing was made");
    }
    return !isInterrupted || done > 0;
}

void Progress::Show(int64_t done, bool last) {
    shown_ = std::chrono::steady_clock::now();
    const double seconds = std::chrono::duration<double>(shown_ - start_).count();
    const double rate = seconds > 0 ? static_cast<double>(done) / seconds : 0;
    if (kind_ == ProgressKind::Pipe) {
        fmt::print(stderr, "frame={}\nframes={}\nfps={:.2f}\nelapsed_s={:.2f}\nprogress={}\n", done,
                   expected_, rate, seconds, last ? "end" : "continue");
    } else if (kind_ == ProgressKind::Bar) {
        DrawBar(done, rate, last);
    }
}

void Progress::DrawBar(int64_t done, double rate, bool last) const {
    constexpr int64_t MostFilled = 40;
    constexpr size_t UsualColumns = 80;
    struct winsize terminal = {};
    const bool isKnown = ioctl(STDERR_FILENO, TIOCGWINSZ, &terminal) == 0 && terminal.ws_col > 0;
    // One column less than there are: terminals go on to the next line after the last.
    const size_t columns = (isKnown ? terminal.ws_col : UsualColumns) - 1;
    const int64_t all = std::max<int64_t>({expected_, last ? done : 0, 1});
    std::string text = fmt::format("{}{} frames, {:.1f} per second", done,
                                   expected_ > 0 ? fmt::format(" of {}", expected_) : "", rate);
    if (!last && rate > 0 && all >= done) {
        const auto seconds = static_cast<int64_t>(static_cast<double>(all - done) / rate);
        text += fmt::format(", {}:{:02} left", seconds / 60, seconds % 60);
    }
    const int64_t width =
        std::min(MostFilled, static_cast<int64_t>(columns) - static_cast<int64_t>(text.size()) - 3);
    if (width > 0) {
        const auto filled = static_cast<size_t>(width * std::min(done, all) / all);
        text = fmt::format("[{:<{}}] {}", std::string(filled, '#'), width, text);
    }
    fmt::print(stderr, "\r{:<{}.{}}{}", text, columns, columns, last ? "\n" : "");
}

}  // namespace desk
