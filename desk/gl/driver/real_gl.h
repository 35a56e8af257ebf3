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

#define DESK_REAL(find, prefix, name) \
    decltype(&::prefix##name) name = reinterpret_cast<decltype(&::prefix##name)>(find(#prefix #name))

struct RealEgl {
    DESK_REAL(FindEgl, egl, CreateContext);
    DESK_REAL(FindEgl, egl, DestroyContext);
    DESK_REAL(FindEgl, egl, GetDisplay);
    DESK_REAL(FindEgl, egl, GetError);
    DESK_REAL(FindEgl, egl, GetPlatformDisplay);
    DESK_REAL(FindEgl, egl, Initialize);
    DESK_REAL(FindEgl, egl, MakeCurrent);
    DESK_REAL(FindEgl, egl, QueryString);
    DESK_REAL(FindEgl, egl, ReleaseThread);
    DESK_REAL(FindEgl, egl, Terminate);

    DESK_REAL(FindExtension, egl, CreateImageKHR);
    DESK_REAL(FindExtension, egl, DestroyImageKHR);
    DESK_REAL(FindExtension, egl, QueryDevicesEXT);
};

struct RealGl {
    DESK_REAL(FindGl, gl, ActiveTexture);
    DESK_REAL(FindGl, gl, AttachShader);
    DESK_REAL(FindGl, gl, BindAttribLocation);
    DESK_REAL(FindGl, gl, BindBuffer);
    DESK_REAL(FindGl, gl, BindFramebuffer);
    DESK_REAL(FindGl, gl, BindTexture);
    DESK_REAL(FindGl, gl, Clear);
    DESK_REAL(FindGl, gl, ClearColor);
    DESK_REAL(FindGl, gl, CompileShader);
    DESK_REAL(FindGl, gl, CreateProgram);
    DESK_REAL(FindGl, gl, CreateShader);
    DESK_REAL(FindGl, gl, DeleteFramebuffers);
    DESK_REAL(FindGl, gl, DeleteProgram);
    DESK_REAL(FindGl, gl, DeleteRenderbuffers);
    DESK_REAL(FindGl, gl, DeleteShader);
    DESK_REAL(FindGl, gl, DeleteTextures);
    DESK_REAL(FindGl, gl, DetachShader);
    DESK_REAL(FindGl, gl, DrawArrays);
    DESK_REAL(FindGl, gl, DrawElements);
    DESK_REAL(FindGl, gl, Enable);
    DESK_REAL(FindGl, gl, Finish);
    DESK_REAL(FindGl, gl, FramebufferRenderbuffer);
    DESK_REAL(FindGl, gl, FramebufferTexture2D);
    DESK_REAL(FindGl, gl, GenFramebuffers);
    DESK_REAL(FindGl, gl, GenTextures);
    DESK_REAL(FindGl, gl, GetActiveAttrib);
    DESK_REAL(FindGl, gl, GetAttachedShaders);
    DESK_REAL(FindGl, gl, GetAttribLocation);
    DESK_REAL(FindGl, gl, GetError);
    DESK_REAL(FindGl, gl, GetFloatv);
    DESK_REAL(FindGl, gl, GetFramebufferAttachmentParameteriv);
    DESK_REAL(FindGl, gl, GetIntegerv);
    DESK_REAL(FindGl, gl, GetProgramInfoLog);
    DESK_REAL(FindGl, gl, GetProgramiv);
    DESK_REAL(FindGl, gl, GetShaderSource);
    DESK_REAL(FindGl, gl, GetShaderiv);
    DESK_REAL(FindGl, gl, GetString);
    DESK_REAL(FindGl, gl, GetUniformLocation);
    DESK_REAL(FindGl, gl, GetUniformiv);
    DESK_REAL(FindGl, gl, IsEnabled);
    DESK_REAL(FindGl, gl, IsProgram);
    DESK_REAL(FindGl, gl, LinkProgram);
    DESK_REAL(FindGl, gl, PixelStorei);
    DESK_REAL(FindGl, gl, ReadPixels);
    DESK_REAL(FindGl, gl, Scissor);
    DESK_REAL(FindGl, gl, ShaderSource);
    DESK_REAL(FindGl, gl, TexParameteri);
    DESK_REAL(FindGl, gl, TexStorage2D);
    DESK_REAL(FindGl, gl, TexSubImage2D);
    DESK_REAL(FindGl, gl, Uniform1i);
    DESK_REAL(FindGl, gl, UseProgram);
    DESK_REAL(FindGl, gl, Viewport);

    DESK_REAL(FindExtension, gl, DebugMessageCallbackKHR);
    DESK_REAL(FindExtension, gl, DebugMessageControlKHR);
    DESK_REAL(FindExtension, gl, EGLImageTargetTexture2DOES);
    DESK_REAL(FindExtension, gl, EGLImageTargetRenderbufferStorageOES);
};

#undef DESK_REAL

/// Both are filled on first use.
const RealEgl& Egl();
const RealGl& Gl();

/// One integer of the current context's state.
GLint GlInteger(GLenum name);

}  // namespace desk
