#pragma once

#include <exception>
#include <stdexcept>
#include <string>

#include "desk/gl/driver/real_gl.h"

namespace desk {

/// A refusal of one of the layer's EGL functions: the code that eglGetError is to give, and the sentence
/// that says what was expected and what came.
class EglError : public std::runtime_error {
public:
    EglError(EGLint code, const std::string& sentence) : std::runtime_error(sentence), code_(code) {}
    EGLint Code() const {
        return code_;
    }

private:
    EGLint code_;
};

/// The calling thread's result of its latest EGL call was made here, not in the driver.
void SetEglResult(EGLint code);

/// The calling thread's latest EGL call is the driver's business, and so is its result.
void LeaveEglResultToDriver();

/// Prints one line about a refused call.
void ReportRefusal(const char* function, const char* sentence);

/// Runs the body of an exported EGL function. The driver's result counts unless the body sets one; what it
/// throws becomes an EGL error and `failure`, since nothing may be thrown at a caller of a C library.
template <typename Result, typename Body>
Result EglCall(const char* function, Result failure, Body&& body) noexcept {
    LeaveEglResultToDriver();
    try {
        return body();
    } catch (const EglError& error) {
        SetEglResult(error.Code());
        ReportRefusal(function, error.what());
    } catch (const std::exception& error) {
        SetEglResult(EGL_BAD_ALLOC);
        ReportRefusal(function, error.what());
    }
    return failure;
}

}  // namespace desk
