#include <map>
#include <string_view>
#include <type_traits>

#include "bench/null_host.h"
#include "node/dewarp/gpu/gpuapi.h"
#include "node/dewarp/gpu/gpuentrypoints.h"
#include "platform/nativewindowbuffer.h"

namespace bench {
namespace {

/// A handle for whatever EGL creates; never dereferenced.
void* const handle = reinterpret_cast<void*>(0x10);

template <typename Function>
struct NullEntry;

template <typename Result, typename... Arguments>
struct NullEntry<Result (*)(Arguments...)> {
    static Result Call(Arguments...) {
        if constexpr (std::is_same_v<Result, void*>) {
            return handle;
        } else {
            return Result();
        }
    }
};

template <typename Integer, Integer Value, typename... Arguments>
Integer Answer(Arguments...) {
    return Value;
}

void Generate(GLsizei /*count*/, GLuint* names) {
    static GLuint last = 0;
    *names = ++last;
}

void SayYes(GLuint /*object*/, GLenum /*name*/, GLint* value) {
    *value = 1;
}

EGLImageKHR CreateImage(EGLDisplay /*display*/, EGLContext /*context*/, EGLenum /*target*/,
                        EGLClientBuffer buffer, const EGLint* /*attributes*/) {
    auto* windowBuffer = reinterpret_cast<ANativeWindowBuffer*>(buffer);
    windowBuffer->common.incRef(&windowBuffer->common);
    return windowBuffer;
}

EGLBoolean DestroyImage(EGLDisplay /*display*/, EGLImageKHR image) {
    auto* windowBuffer = static_cast<ANativeWindowBuffer*>(image);
    windowBuffer->common.decRef(&windowBuffer->common);
    return EGL_TRUE;
}

using Entry = std::pair<const std::string_view, void*>;

template <typename Function>
Entry Special(const char* name, Function* function) {
    return {name, reinterpret_cast<void*>(function)};
}

#define NULL_ENTRY(member, symbol, ...) Special(#symbol, NullEntry<decltype(&::symbol)>::Call),
/// First those that a caller needs an answer of.
const std::map<std::string_view, void*> entries = {
    Special("eglGetError", Answer<EGLint, EGL_SUCCESS>),
    Special("glCheckFramebufferStatus", Answer<GLenum, GL_FRAMEBUFFER_COMPLETE, GLenum>),
    Special("glCreateShader", Answer<GLuint, 1, GLenum>),
    Special("glCreateProgram", Answer<GLuint, 1>),
    Special("glGetAttribLocation", Answer<GLint, 0, GLuint, const GLchar*>),
    Special("glGetShaderiv", SayYes),
    Special("glGetProgramiv", SayYes),
    Special("glGenBuffers", Generate),
    Special("glGenTextures", Generate),
    Special("glGenFramebuffers", Generate),
    Special("glGenRenderbuffers", Generate),
    Special("eglInitialize", Answer<EGLBoolean, EGL_TRUE, EGLDisplay, EGLint*, EGLint*>),
    Special("eglMakeCurrent", Answer<EGLBoolean, EGL_TRUE, EGLDisplay, EGLSurface, EGLSurface, EGLContext>),
    Special("eglCreateImageKHR", CreateImage),
    Special("eglDestroyImageKHR", DestroyImage),
    DEWARP_GLES_ENTRIES(NULL_ENTRY) DEWARP_EGL_ENTRIES(NULL_ENTRY)};
#undef NULL_ENTRY

}  // namespace

void* NullGlSymbol(const char* name) {
    const auto found = entries.find(name);
    return found != entries.end() ? found->second : nullptr;
}

}  // namespace bench
