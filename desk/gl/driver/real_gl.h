#pragma once

#define GL_GLEXT_PROTOTYPES
#include <EGL/egl.h>
#define EGL_EGLEXT_PROTOTYPES
#include <EGL/eglext.h>
#include <GLES3/gl3.h>
// gl2ext.h builds on the types of gl3.h.
#include <GLES2/gl2ext.h>

namespace desk {

/// The address of a function of the machine's own EGL or OpenGL ES, which this layer stands on. One that
/// neither has ends the process with a sentence that names it.
void* FindReal(const char* name);

}  // namespace desk

/// The machine's own function of that name, looked up when it is first called here. The layer defines some of
/// the same names, so it never calls a function of the driver in any other way.
#define REAL(name)                                                                               \
    ([] {                                                                                        \
        static const auto function = reinterpret_cast<decltype(&::name)>(desk::FindReal(#name)); \
        return function;                                                                         \
    }())
