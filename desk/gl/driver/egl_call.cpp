#include "desk/gl/driver/egl_call.h"

#include <cstdio>
#include <optional>
#include <utility>

#include "desk/gl/driver/export.h"

namespace desk {
namespace {

thread_local std::optional<EGLint> ownResult;

}  // namespace

void SetEglResult(EGLint code) {
    ownResult = code;
}

void LeaveEglResultToDriver() {
    ownResult.reset();
}

void ReportRefusal(const char* function, const char* sentence) {
    static_cast<void>(std::fprintf(stderr, "desk-gl: %s: %s\n", function, sentence));
}

}  // namespace desk

DESK_GL_EXPORT EGLint EGLAPIENTRY eglGetError() {
    // Read in any case: reading resets, and only the latest call's result may be left to be seen.
    const EGLint driverResult = desk::Egl().GetError();
    return std::exchange(desk::ownResult, std::nullopt).value_or(driverResult);
}
