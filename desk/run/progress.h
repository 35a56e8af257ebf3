#pragma once

#include <chrono>
#include <cstdint>

namespace desk {

enum class ProgressKind { Auto, Bar, Pipe, None };

/// Makes SIGINT, SIGTERM and, unless the caller has it ignored, SIGHUP end the run after the frame that is
/// under way.
void CatchInterrupts();
bool Interrupted();

/// Tells on stderr how far a run is: a bar that is drawn over, or blocks of key=value lines.
class Progress {
public:
    /// `expected` is the number of frames; 0 when nobody knows. Auto draws the bar on a terminal and nothing
    /// elsewhere.
    Progress(ProgressKind kind, int64_t expected);

    /// After every frame; shows the first state, and at most two a second.
    void Step(int64_t done);
    /// After the last; shows it. False when the run was interrupted before the first, so that there is
    /// nothing to keep, which it says.
    bool End(int64_t done);

private:
    void Show(int64_t done, bool last);
    void DrawBar(int64_t done, double rate, bool last) const;

    ProgressKind kind_;
    int64_t expected_;
    std::chrono::steady_clock::time_point start_;
    std::chrono::steady_clock::time_point shown_{};
};

}  // namespace desk
