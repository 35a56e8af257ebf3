#include "desk/gl/driver/real_gl.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>

namespace desk {
namespace {

/// A driver's function, to be taken as one of any type.
struct Found {
    template <typename Function>
    operator Function*() const {  // NOLINT(google-explicit-constructor): the tables below list functions
        return reinterpret_cast<Function*>(address);
    }
    void* address;
};

Found Find(const char* libraryName, const char* name) {
    // This library links the other one, so the call only finds it again.
    void* library = dlopen(libraryName, RTLD_NOW | RTLD_LOCAL);
    void* function = library == nullptr ? nullptr : dlsym(library, name);
    if (function == nullptr) {
        static_cast<void>(std::fprintf(stderr, "desk-gl: expected %s in %s, got none\n", name, libraryName));
        std::abort();
    }
    return {function};
}

Found FindExtension(const char* name) {
    // Not by Egl(), which asks for extensions while it is being filled.
    static const decltype(&::eglGetProcAddress) find = Find("libEGL.so.1", "eglGetProcAddress");
    return {reinterpret_cast<void*>(find(name))};
}

}  // namespace

#define DESK_EGL(name) Find("libEGL.so.1", "egl" #name),
#define DESK_GL(name) Find("libGLESv2.so.2", "gl" #name),
#define DESK_EGL_EXTENSION(name) FindExtension("egl" #name),
#define DESK_GL_EXTENSION(name) FindExtension("gl" #name),

const RealEgl& Egl() {
    static const RealEgl egl = {DESK_EGL_FUNCTIONS(DESK_EGL) DESK_EGL_EXTENSIONS(DESK_EGL_EXTENSION)};
    return egl;  // cppcheck-suppress returnDanglingLifetime; it is static
}

const RealGl& Gl() {
    static const RealGl gl = {DESK_GL_FUNCTIONS(DESK_GL) DESK_GL_EXTENSIONS(DESK_GL_EXTENSION)};
    return gl;  // cppcheck-suppress returnDanglingLifetime; it is static
}

}  // namespace desk
