#include "desk/gl/driver/driver_errors.h"

#include <cstring>
#include <mutex>
#include <string>

#include "desk/gl/driver/real_gl.h"

namespace desk {
namespace {

struct Sink {
    std::mutex mutex;
    DeskGlErrorSink function = nullptr;
    void* owner = nullptr;
};

Sink& TheSink() {
    static auto* sink = new Sink;  // threads may outlive the static objects
    return *sink;
}

void GL_APIENTRY TakeMessage(GLenum /*source*/, GLenum /*type*/, GLuint /*id*/, GLenum /*severity*/,
                             GLsizei /*length*/, const GLchar* message, const void* /*user*/) {
    std::string text = message;
    text.erase(text.find_last_not_of(" \n") + 1);
    Sink& sink = TheSink();
    const std::lock_guard<std::mutex> lock(sink.mutex);
    if (sink.function != nullptr) {
        sink.function(sink.owner, text.c_str());
    }
}

}  // namespace

void ListenToDriver() {
    const GLubyte* extensions = Gl().GetString(GL_EXTENSIONS);
    if (extensions == nullptr ||
        std::strstr(reinterpret_cast<const char*>(extensions), "GL_KHR_debug") == nullptr) {
        return;
    }
    // Of the errors alone: hints on speed come with every frame.
    Gl().DebugMessageControlKHR(GL_DONT_CARE, GL_DONT_CARE, GL_DONT_CARE, 0, nullptr, GL_FALSE);
    Gl().DebugMessageControlKHR(GL_DONT_CARE, GL_DEBUG_TYPE_ERROR_KHR, GL_DONT_CARE, 0, nullptr, GL_TRUE);
    Gl().DebugMessageCallbackKHR(TakeMessage, nullptr);
    // Inside the call in error, so that the host knows whose it is.
    Gl().Enable(GL_DEBUG_OUTPUT_SYNCHRONOUS_KHR);
    Gl().Enable(GL_DEBUG_OUTPUT_KHR);
}

void SetDriverErrorSink(DeskGlErrorSink function, void* owner) {
    Sink& sink = TheSink();
    const std::lock_guard<std::mutex> lock(sink.mutex);
    sink.function = function;
    sink.owner = owner;
}

}  // namespace desk
