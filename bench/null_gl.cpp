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
    template <int Value>
    static Result Answer(Arguments...) {
        if constexpr (std::is_same_v<Result, void*>) {
            return handle;
        } else if constexpr (std::is_integral_v<Result>) {
            return static_cast<Result>(Value);
        } else {
            return Result();
        }
    }
};

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

#define ENTRY(symbol, function) std::pair(std::string_view(#symbol), reinterpret_cast<void*>(function))
#define ANSWER(symbol, value) ENTRY(symbol, NullEntry<decltype(&::symbol)>::Answer<value>)
#define NULL_ENTRY(member, symbol, ...) ANSWER(symbol, 0),
/// First those that a caller needs an answer of.
const std::map<std::string_view, void*> entries = {ANSWER(eglGetError, EGL_SUCCESS),
                                                   ANSWER(eglInitialize, EGL_TRUE),
                                                   ANSWER(eglMakeCurrent, EGL_TRUE),
                                                   ANSWER(glCheckFramebufferStatus, GL_FRAMEBUFFER_COMPLETE),
                                                   ANSWER(glCreateShader, 1),
                                                   ANSWER(glCreateProgram, 1),
                                                   ENTRY(glGetShaderiv, SayYes),
                                                   ENTRY(glGetProgramiv, SayYes),
                                                   ENTRY(glGenBuffers, Generate),
                                                   ENTRY(glGenTextures, Generate),
                                                   ENTRY(glGenFramebuffers, Generate),
                                                   ENTRY(glGenRenderbuffers, Generate),
                                                   ENTRY(eglCreateImageKHR, CreateImage),
                                                   ENTRY(eglDestroyImageKHR, DestroyImage),
                                                   DEWARP_GLES_ENTRIES(NULL_ENTRY)
                                                       DEWARP_EGL_ENTRIES(NULL_ENTRY)};
#undef NULL_ENTRY
#undef ANSWER
#undef ENTRY

}  // namespace

void* NullGlSymbol(const char* name) {
    const auto found = entries.find(name);
    return found != entries.end() ? found->second : nullptr;
}

}  // namespace bench
