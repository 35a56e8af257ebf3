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

#define DESK_REAL_EGL_FUNCTIONS(X)                                                             \
    X(CreateContext) X(DestroyContext) X(GetDisplay) X(GetError) X(GetPlatformDisplay)         \
    X(GetProcAddress) X(Initialize) X(MakeCurrent) X(QueryString) X(ReleaseThread) X(Terminate)

/// Extensions, null where the driver has none of that name.
#define DESK_REAL_EGL_EXTENSIONS(X) X(CreateImageKHR) X(DestroyImageKHR) X(QueryDevicesEXT)

#define DESK_REAL_GL_FUNCTIONS(X)                                                                \
    X(ActiveTexture) X(AttachShader) X(BindAttribLocation) X(BindBuffer) X(BindFramebuffer)      \
    X(BindTexture) X(Clear) X(ClearColor) X(CompileShader) X(CreateProgram) X(CreateShader)      \
    X(DeleteFramebuffers) X(DeleteProgram) X(DeleteRenderbuffers) X(DeleteShader)                \
    X(DeleteTextures) X(DetachShader) X(DrawArrays) X(DrawElements) X(Finish)                    \
    X(FramebufferRenderbuffer) X(FramebufferTexture2D) X(GenFramebuffers) X(GenTextures)         \
    X(GetActiveAttrib) X(GetAttachedShaders) X(GetAttribLocation) X(GetError) X(GetFloatv)       \
    X(GetFramebufferAttachmentParameteriv) X(GetIntegerv) X(GetProgramInfoLog) X(GetProgramiv)   \
    X(GetShaderSource) X(GetShaderiv) X(GetUniformLocation) X(GetUniformiv) X(IsEnabled)         \
    X(IsProgram) X(LinkProgram) X(PixelStorei) X(ReadPixels) X(Scissor) X(ShaderSource)          \
    X(TexParameteri) X(TexStorage2D) X(TexSubImage2D) X(Uniform1i) X(UseProgram) X(Viewport)

#define DESK_REAL_GL_EXTENSIONS(X) X(EGLImageTargetTexture2DOES) X(EGLImageTargetRenderbufferStorageOES)

struct RealEgl {
#define DESK_MEMBER(name) decltype(&::egl##name) name;
    DESK_REAL_EGL_FUNCTIONS(DESK_MEMBER)
    DESK_REAL_EGL_EXTENSIONS(DESK_MEMBER)
#undef DESK_MEMBER
};

struct RealGl {
#define DESK_MEMBER(name) decltype(&::gl##name) name;
    DESK_REAL_GL_FUNCTIONS(DESK_MEMBER)
    DESK_REAL_GL_EXTENSIONS(DESK_MEMBER)
#undef DESK_MEMBER
};

/// Both are filled on first use from libEGL.so.1 and libGLESv2.so.2; a driver that lacks a core function ends
/// the process with a sentence that names it.
const RealEgl& Egl();
const RealGl& Gl();

/// One integer of the current context's state.
GLint GlInteger(GLenum name);

}  // namespace desk
