#include "desk/tool/gl_info.h"

#include <EGL/egl.h>
#include <GLES3/gl3.h>
#include <dlfcn.h>

#include <array>

namespace desk {
namespace {

/// A library whose functions are called by name, as a node does. It stays loaded, as GL drivers want it.
class NamedCalls {
public:
    explicit NamedCalls(const std::filesystem::path& file) : library_(dlopen(file.c_str(), RTLD_NOW)) {}

    bool Loaded() const {
        return library_ != nullptr;
    }

    template <typename Function, typename... Arguments>
    auto Call(const char* name, Arguments... arguments) const {
        return reinterpret_cast<Function*>(dlsym(library_, name))(arguments...);
    }

private:
    void* library_;
};

GlInfo InfoOf(const NamedCalls& egl, const NamedCalls& gl, EGLDisplay display) {
    const std::array<EGLint, 3> wanted = {EGL_SURFACE_TYPE, EGL_PBUFFER_BIT, EGL_NONE};
    const std::array<EGLint, 3> version = {EGL_CONTEXT_CLIENT_VERSION, 2, EGL_NONE};
    EGLConfig config = nullptr;
    EGLint configs = 0;
    egl.Call<decltype(eglBindAPI)>("eglBindAPI", EGLenum{EGL_OPENGL_ES_API});
    egl.Call<decltype(eglChooseConfig)>("eglChooseConfig", display, wanted.data(), &config, 1, &configs);
    EGLContext context = egl.Call<decltype(eglCreateContext)>("eglCreateContext", display, config,
                                                              EGL_NO_CONTEXT, version.data());
    GlInfo info;
    if (egl.Call<decltype(eglMakeCurrent)>("eglMakeCurrent", display, EGL_NO_SURFACE, EGL_NO_SURFACE,
                                           context) == EGL_TRUE) {
        const GLubyte* text = gl.Call<decltype(glGetString)>("glGetString", GLenum{GL_RENDERER});
        info.renderer = text == nullptr ? "" : reinterpret_cast<const char*>(text);
        gl.Call<decltype(glGetIntegerv)>("glGetIntegerv", GLenum{GL_MAX_TEXTURE_SIZE}, &info.maxTextureSize);
        egl.Call<decltype(eglMakeCurrent)>("eglMakeCurrent", display, EGL_NO_SURFACE, EGL_NO_SURFACE,
                                           EGL_NO_CONTEXT);
    }
    egl.Call<decltype(eglDestroyContext)>("eglDestroyContext", display, context);
    return info;
}

}  // namespace

GlInfo DescribeGl(const std::filesystem::path& libraryDir) {
    const NamedCalls egl(libraryDir / "libEGL.so");
    const NamedCalls gl(libraryDir / "libGLESv2.so");
    if (!egl.Loaded() || !gl.Loaded()) {
        return {};
    }
    EGLDisplay display = egl.Call<decltype(eglGetDisplay)>("eglGetDisplay", EGL_DEFAULT_DISPLAY);
    if (egl.Call<decltype(eglInitialize)>("eglInitialize", display, nullptr, nullptr) != EGL_TRUE) {
        return {};
    }
    const GlInfo info = InfoOf(egl, gl, display);
    egl.Call<decltype(eglTerminate)>("eglTerminate", display);
    return info;
}

}  // namespace desk
