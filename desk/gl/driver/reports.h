#pragma once

#include <optional>
#include <stdexcept>
#include <string>

#include "desk/abi/gl_reports.h"
#include "desk/base/guarded.h"
#include "desk/gl/driver/real_gl.h"

namespace desk {

/// What desk_gl_counters() gives, but for what is the calling thread's.
inline auto& globalCounters = *new Guarded<DeskGlCounters>;  // threads may outlive the static objects

/// A member that counts its owner as alive from construction to destruction.
class LiveCount {
public:
    explicit LiveCount(uint64_t DeskGlCounters::*count) : count_(count) {
        globalCounters.With([count](DeskGlCounters& counters) { ++(counters.*count); });
    }
    ~LiveCount() {
        globalCounters.With([this](DeskGlCounters& counters) { --(counters.*count_); });
    }
    LiveCount(const LiveCount&) = delete;
    LiveCount& operator=(const LiveCount&) = delete;

private:
    uint64_t DeskGlCounters::*count_;
};

/// A refusal of one of the layer's EGL functions: the code that eglGetError is to give, and the sentence
/// that says what was expected and what came.
struct EglError : std::runtime_error {
    EglError(EGLint errorCode, const std::string& sentence) : std::runtime_error(sentence), code(errorCode) {}
    EGLint code;
};

/// The result of the calling thread's latest EGL call; empty when the driver has it.
void SetEglResult(std::optional<EGLint> code);
/// Hands the result over; until the next call it is EGL_SUCCESS then.
EGLint TakeEglResult();

/// Prints one line about a refused call.
void ReportRefusal(const char* function, const char* sentence);

/// Has the driver tell what errors it meets in the context that is current. A driver that cannot tell keeps
/// silent.
void ListenToDriver();

/// Says whom it tells, as desk_gl_set_error_sink() has it.
void SetDriverErrorSink(DeskGlErrorSink function, void* owner);

}  // namespace desk
