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

/// The driver's function of that name. A driver that lacks it ends the process with a sentence that names it.
void* FindEgl(const char* name);
void* FindGl(const char* name);
/// The same of an extension, null where the driver has none of that name.
void* FindExtension(const char* name);

// clang-format off
#define DESK_EGL_FUNCTIONS(X)                                                                              \
    X(CreateContext) X(DestroyContext) X(GetCurrentDisplay) X(GetDisplay) X(GetError)                      \
    X(GetPlatformDisplay) X(Initialize) X(MakeCurrent) X(QueryString) X(ReleaseThread) X(Terminate)
#define DESK_GL_FUNCTIONS(X)                                                                               \
    X(ActiveTexture) X(AttachShader) X(BindAttribLocation) X(BindFramebuffer) X(BindTexture) X(Clear)      \
    X(ClearColor) X(CompileShader) X(CreateProgram) X(CreateShader) X(DeleteFramebuffers)                  \
    X(DeleteProgram) X(DeleteRenderbuffers) X(DeleteShader) X(DeleteTextures) X(DetachShader)              \
    X(DrawArrays) X(DrawElements) X(Enable) X(Finish) X(FramebufferRenderbuffer) X(FramebufferTexture2D)   \
    X(GenFramebuffers) X(GenTextures) X(GetActiveAttrib) X(GetAttachedShaders) X(GetAttribLocation)        \
    X(GetError) X(GetFloatv) X(GetFramebufferAttachmentParameteriv) X(GetIntegerv) X(GetProgramInfoLog)    \
    X(GetProgramiv) X(GetShaderSource) X(GetShaderiv) X(GetString) X(GetUniformLocation) X(GetUniformiv)   \
    X(IsEnabled) X(IsProgram) X(LinkProgram) X(PixelStorei) X(ReadPixels) X(Scissor) X(ShaderSource)       \
    X(TexParameteri) X(TexStorage2D) X(TexSubImage2D) X(Uniform1i) X(UseProgram) X(Viewport)
#define DESK_GL_EXTENSIONS(X) X(DebugMessageCallbackKHR) X(DebugMessageControlKHR)
// clang-format on

#define DESK_EGL(name) \
    decltype(&::egl##name) name = reinterpret_cast<decltype(&::egl##name)>(FindEgl("egl" #name));
#define DESK_GL(name) \
    decltype(&::gl##name) name = reinterpret_cast<decltype(&::gl##name)>(FindGl("gl" #name));
#define DESK_GL_EXTENSION(name) \
    decltype(&::gl##name) name = reinterpret_cast<decltype(&::gl##name)>(FindExtension("gl" #name));

struct RealEgl {
    DESK_EGL_FUNCTIONS(DESK_EGL)
    PFNEGLQUERYDEVICESEXTPROC QueryDevicesEXT =
        reinterpret_cast<PFNEGLQUERYDEVICESEXTPROC>(FindExtension("eglQueryDevicesEXT"));
};
struct RealGl {
    DESK_GL_FUNCTIONS(DESK_GL)
    DESK_GL_EXTENSIONS(DESK_GL_EXTENSION)
};

/// Both are filled on first use.
const RealEgl& Egl();
const RealGl& Gl();

/// One integer of the current context's state.
GLint GlInteger(GLenum name);

}  // namespace desk
