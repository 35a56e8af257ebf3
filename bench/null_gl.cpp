#include <cstring>
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
        return Result();
    }
    static Result CallForHandle(Arguments...) {
        return reinterpret_cast<Result>(handle);
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

struct Entry {
    const char* name;
    void* function;
};

template <typename Function>
Entry Special(const char* name, Function* function) {
    return {name, reinterpret_cast<void*>(function)};
}

/// Those that a caller needs an answer of.
const Entry specialEntries[] = {
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
    Special("eglGetDisplay", NullEntry<decltype(&eglGetDisplay)>::CallForHandle),
    Special("eglGetCurrentDisplay", NullEntry<decltype(&eglGetCurrentDisplay)>::CallForHandle),
    Special("eglCreateContext", NullEntry<decltype(&eglCreateContext)>::CallForHandle),
    Special("eglCreatePbufferSurface", NullEntry<decltype(&eglCreatePbufferSurface)>::CallForHandle),
    Special("eglInitialize", Answer<EGLBoolean, EGL_TRUE, EGLDisplay, EGLint*, EGLint*>),
    Special("eglMakeCurrent", Answer<EGLBoolean, EGL_TRUE, EGLDisplay, EGLSurface, EGLSurface, EGLContext>),
    Special("eglCreateImageKHR", CreateImage),
    Special("eglDestroyImageKHR", DestroyImage),
};

#define NULL_ENTRY(member, symbol, ...) Special(#symbol, NullEntry<decltype(&::symbol)>::Call),
const Entry nullEntries[] = {DEWARP_GLES_ENTRIES(NULL_ENTRY) DEWARP_EGL_ENTRIES(NULL_ENTRY)};
#undef NULL_ENTRY

template <size_t Count>
void* Find(const Entry (&entries)[Count], const char* name) {
    for (const Entry& entry : entries) {
        if (std::strcmp(entry.name, name) == 0) {
            return entry.function;
        }
    }
    return nullptr;
}

}  // namespace

void* NullGlSymbol(const char* name) {
    void* function = Find(specialEntries, name);
    return function != nullptr ? function : Find(nullEntries, name);
}

}  // namespace bench
