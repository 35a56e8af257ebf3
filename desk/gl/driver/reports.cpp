#include "desk/gl/driver/reports.h"

#include <cstdio>
#include <cstring>
#include <utility>

namespace desk {
namespace {

thread_local std::optional<EGLint> ownResult;

struct Sink {
    DeskGlErrorSink function = nullptr;
    void* owner = nullptr;
};
auto& sink = *new Guarded<Sink>;  // threads may outlive the static objects

void GL_APIENTRY TakeMessage(GLenum /*source*/, GLenum /*type*/, GLuint /*id*/, GLenum /*severity*/,
                             GLsizei /*length*/, const GLchar* message, const void* /*user*/) {
    std::string text = message;
    text.erase(text.find_last_not_of(" \n") + 1);
    sink.With([&text](const Sink& told) {
        if (told.function != nullptr) {
            told.function(told.owner, text.c_str());
        }
    });
}

}  // namespace

void SetEglResult(std::optional<EGLint> code) {
    ownResult = code;
}

EGLint TakeEglResult() {
    // Read in any case: reading resets, and only the latest call's result may be left to be seen.
    const EGLint driverResult = REAL(eglGetError)();
    return std::exchange(ownResult, std::nullopt).value_or(driverResult);
}

void ReportRefusal(const char* function, const char* sentence) {
    static_cast<void>(std::fprintf(stderr, "desk-gl: %s: %s\n", function, sentence));
}

void ListenToDriver() {
    const GLubyte* extensions = REAL(glGetString)(GL_EXTENSIONS);
    if (extensions == nullptr ||
        std::strstr(reinterpret_cast<const char*>(extensions), "GL_KHR_debug") == nullptr) {
        return;
    }
    // Of the errors alone: hints on speed come with every frame.
    const auto select = REAL(glDebugMessageControlKHR);
    select(GL_DONT_CARE, GL_DONT_CARE, GL_DONT_CARE, 0, nullptr, GL_FALSE);
    select(GL_DONT_CARE, GL_DEBUG_TYPE_ERROR_KHR, GL_DONT_CARE, 0, nullptr, GL_TRUE);
    REAL(glDebugMessageCallbackKHR)(TakeMessage, nullptr);
    // Inside the call in error, so that the host knows whose it is.
    REAL(glEnable)(GL_DEBUG_OUTPUT_SYNCHRONOUS_KHR);
    REAL(glEnable)(GL_DEBUG_OUTPUT_KHR);
}

void SetDriverErrorSink(DeskGlErrorSink function, void* owner) {
    sink.With([=](Sink& told) { told = {function, owner}; });
}

}  // namespace desk
