#include "desk/gl/driver/real_gl.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>

namespace desk {
namespace {

void* Find(const char* libraryName, const char* name) {
    // This library links the other one, so the call only finds it again.
    void* library = dlopen(libraryName, RTLD_NOW | RTLD_LOCAL);
    void* function = library == nullptr ? nullptr : dlsym(library, name);
    if (function == nullptr) {
        static_cast<void>(std::fprintf(stderr, "desk-gl: expected %s in %s, got none\n", name, libraryName));
        std::abort();
    }
    return function;
}

}  // namespace

void* FindEgl(const char* name) {
    return Find("libEGL.so.1", name);
}

void* FindGl(const char* name) {
    return Find("libGLESv2.so.2", name);
}

void* FindExtension(const char* name) {
    // Not by Egl(), which asks for extensions while it is being filled.
    static const auto find = reinterpret_cast<decltype(&::eglGetProcAddress)>(FindEgl("eglGetProcAddress"));
    return reinterpret_cast<void*>(find(name));
}

const RealEgl& Egl() {
    static const RealEgl egl;
    return egl;
}

const RealGl& Gl() {
    static const RealGl gl;
    return gl;
}

GLint GlInteger(GLenum name) {
    GLint value = 0;
    Gl().GetIntegerv(name, &value);
    return value;
}

}  // namespace desk
