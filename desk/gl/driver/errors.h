#pragma once

#include <optional>
#include <stdexcept>
#include <string>

#include "desk/abi/gl_reports.h"
#include "desk/gl/driver/real_gl.h"

namespace desk {

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
