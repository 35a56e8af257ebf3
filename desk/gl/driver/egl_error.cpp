#include "desk/gl/driver/egl_error.h"

#include <cstdio>
#include <utility>

namespace desk {
namespace {

thread_local std::optional<EGLint> ownResult;

}  // namespace

void SetEglResult(std::optional<EGLint> code) {
    ownResult = code;
}

EGLint TakeEglResult() {
    // Read in any case: reading resets, and only the latest call's result may be left to be seen.
    const EGLint driverResult = Egl().GetError();
    return std::exchange(ownResult, std::nullopt).value_or(driverResult);
}

void ReportRefusal(const char* function, const char* sentence) {
    static_cast<void>(std::fprintf(stderr, "desk-gl: %s: %s\n", function, sentence));
}

}  // namespace desk
