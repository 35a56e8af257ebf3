#include "desk/gl/real_gl.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>

namespace desk {
namespace {

template <typename Function>
void FindCore(const char* libraryName, const char* name, Function& function) {
    // The library is one of ours to load from the start, so this only finds it again.
    void* library = dlopen(libraryName, RTLD_NOW | RTLD_LOCAL);
    function = library == nullptr ? nullptr : reinterpret_cast<Function>(dlsym(library, name));
    if (function == nullptr) {
        std::fprintf(stderr, "desk-gl: expected %s in %s, got none\n", name, libraryName);
        std::abort();
    }
}

template <typename Function>
void FindExtension(const RealEgl& egl, const char* name, Function& function) {
    function = reinterpret_cast<Function>(egl.GetProcAddress(name));
}

RealEgl LoadEgl() {
    RealEgl egl;
#define DESK_FIND(name) FindCore("libEGL.so.1", "egl" #name, egl.name);
    DESK_REAL_EGL_FUNCTIONS(DESK_FIND)
#undef DESK_FIND
#define DESK_FIND(name) FindExtension(egl, "egl" #name, egl.name);
    DESK_REAL_EGL_EXTENSIONS(DESK_FIND)
#undef DESK_FIND
    return egl;
}

RealGl LoadGl() {
    RealGl gl;
#define DESK_FIND(name) FindCore("libGLESv2.so.2", "gl" #name, gl.name);
    DESK_REAL_GL_FUNCTIONS(DESK_FIND)
#undef DESK_FIND
#define DESK_FIND(name) FindExtension(Egl(), "gl" #name, gl.name);
    DESK_REAL_GL_EXTENSIONS(DESK_FIND)
#undef DESK_FIND
    return gl;
}

}  // namespace

const RealEgl& Egl() {
    static const RealEgl egl = LoadEgl();
    return egl;
}

const RealGl& Gl() {
    static const RealGl gl = LoadGl();
    return gl;
}

GLint GlInteger(GLenum name) {
    GLint value = 0;
    Gl().GetIntegerv(name, &value);
    return value;
}

}  // namespace desk
