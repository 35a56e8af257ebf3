#pragma once

#define GL_GLEXT_PROTOTYPES
#include <EGL/egl.h>
#define EGL_EGLEXT_PROTOTYPES
#include <EGL/eglext.h>
#include <GLES3/gl3.h>
// gl2ext.h builds on the types of gl3.h.
#include <GLES2/gl2ext.h>

/// The machine's own EGL and OpenGL ES, which this layer stands on. The layer defines some of the same names,
/// so it never calls one by name: everything it needs of the driver goes through these two tables.
namespace desk {

// clang-format off
#define DESK_EGL_FUNCTIONS(X)                                                                              \
    X(CreateContext) X(DestroyContext) X(GetCurrentDisplay) X(GetDisplay) X(GetError)                      \
    X(GetPlatformDisplay) X(Initialize) X(MakeCurrent) X(QueryString) X(ReleaseThread) X(Terminate)
#define DESK_EGL_EXTENSIONS(X) X(QueryDevicesEXT)
#define DESK_GL_FUNCTIONS(X)                                                                               \
    X(ActiveTexture) X(AttachShader) X(BindAttribLocation) X(BindFramebuffer) X(BindTexture) X(Clear)      \
    X(ClearColor) X(CompileShader) X(CreateProgram) X(CreateShader) X(DeleteFramebuffers)                  \
    X(DeleteProgram) X(DeleteRenderbuffers) X(DeleteShader) X(DeleteTextures) X(DetachShader)              \
    X(DrawArrays) X(DrawElements) X(Enable) X(Finish) X(FramebufferRenderbuffer) X(FramebufferTexture2D)   \
    X(GenFramebuffers) X(GenTextures) X(GetActiveAttrib) X(GetAttachedShaders) X(GetAttribLocation)        \
    X(GetError) X(GetFloatv) X(GetFramebufferAttachmentParameteriv) X(GetIntegerv) X(GetProgramInfoLog)    \
    X(GetProgramiv) X(GetShaderSource) X(GetShaderiv) X(GetString) X(GetUniformLocation) X(GetUniformiv)   \
    X(IsEnabled) X(LinkProgram) X(PixelStorei) X(ReadPixels) X(Scissor) X(ShaderSource)       \
    X(TexParameteri) X(TexStorage2D) X(TexSubImage2D) X(Uniform1i) X(UseProgram) X(Viewport)
#define DESK_GL_EXTENSIONS(X) X(DebugMessageCallbackKHR) X(DebugMessageControlKHR)
// clang-format on

struct RealEgl {
#define DESK_MEMBER(name) decltype(&::egl##name) name;
    DESK_EGL_FUNCTIONS(DESK_MEMBER)
    DESK_EGL_EXTENSIONS(DESK_MEMBER)
#undef DESK_MEMBER
};
struct RealGl {
#define DESK_MEMBER(name) decltype(&::gl##name) name;
    DESK_GL_FUNCTIONS(DESK_MEMBER)
    DESK_GL_EXTENSIONS(DESK_MEMBER)
#undef DESK_MEMBER
};

/// Both are filled on first use. A driver that lacks a function ends the process with a sentence that names
/// it; an extension's is null where the driver has none of that name.
const RealEgl& Egl();
const RealGl& Gl();

}  // namespace desk
