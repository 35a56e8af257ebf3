#include "desk/run/environment.h"

#include <EGL/egl.h>
#include <GLES3/gl3.h>
#include <dlfcn.h>
#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>

#include "desk/base/usage_error.h"

namespace desk {
namespace {

/// What the program loads lies in the build folder that the program itself lies in, in bin.
std::filesystem::path Built(const char* file) {
    const auto place = std::filesystem::read_symlink("/proc/self/exe").parent_path().parent_path() / file;
    if (!std::filesystem::exists(place)) {
        throw std::runtime_error(
            fmt::format("expected {}, which is built beside the program", place.string()));
    }
    return place;
}

struct GlInfo {
    std::string renderer;    ///< empty when there is no context
    int maxTextureSize = 0;  ///< pixels each way
};

/// A function of a library, to be called by name as a node does.
template <typename Function>
Function* Find(void* library, const char* name) {
    return reinterpret_cast<Function*>(dlsym(library, name));
}

/// Of the context that is current.
GlInfo CurrentInfo(void* gl) {
    GlInfo info;
    const GLubyte* renderer = Find<decltype(glGetString)>(gl, "glGetString")(GL_RENDERER);
    info.renderer = renderer == nullptr ? "" : reinterpret_cast<const char*>(renderer);
    Find<decltype(glGetIntegerv)>(gl, "glGetIntegerv")(GL_MAX_TEXTURE_SIZE, &info.maxTextureSize);
    return info;
}

GlInfo DescribeGl() {
    // The libraries stay loaded, as GL drivers want it.
    void* egl = dlopen((SystemLibraryFolder() / "libEGL.so").c_str(), RTLD_NOW);
    void* gl = dlopen((SystemLibraryFolder() / "libGLESv2.so").c_str(), RTLD_NOW);
    if (egl == nullptr || gl == nullptr) {
        return {};
    }
    EGLDisplay display = Find<decltype(eglGetDisplay)>(egl, "eglGetDisplay")(EGL_DEFAULT_DISPLAY);
    if (Find<decltype(eglInitialize)>(egl, "eglInitialize")(display, nullptr, nullptr) != EGL_TRUE) {
        return {};
    }
    const EGLint wanted[] = {EGL_SURFACE_TYPE, EGL_PBUFFER_BIT, EGL_NONE};
    const EGLint version[] = {EGL_CONTEXT_CLIENT_VERSION, 2, EGL_NONE};
    EGLConfig config = nullptr;
    EGLint configs = 0;
    Find<decltype(eglBindAPI)>(egl, "eglBindAPI")(EGL_OPENGL_ES_API);
    Find<decltype(eglChooseConfig)>(egl, "eglChooseConfig")(display, wanted, &config, 1, &configs);
    EGLContext context =
        Find<decltype(eglCreateContext)>(egl, "eglCreateContext")(display, config, EGL_NO_CONTEXT, version);
    auto* const makeCurrent = Find<decltype(eglMakeCurrent)>(egl, "eglMakeCurrent");
    GlInfo info;
    if (makeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, context) == EGL_TRUE) {
        info = CurrentInfo(gl);
        makeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
    }
    Find<decltype(eglDestroyContext)>(egl, "eglDestroyContext")(display, context);
    Find<decltype(eglTerminate)>(egl, "eglTerminate")(display);
    return info;
}

}  // namespace

std::filesystem::path NodeLibraryFile() {
    return Built("lib/com.oxa.node.dewarp.so");
}

std::filesystem::path SystemLibraryFolder() {
    return Built("desk/system/lib64");
}

std::string RendererFor(cv::Size input) {
    const GlInfo gl = DescribeGl();
    if (gl.renderer.empty()) {
        throw std::runtime_error(
            "the machine's EGL and OpenGL ES give no context; expected a driver such as Mesa's");
    }
    if (std::max(input.width, input.height) > gl.maxTextureSize) {
        throw UsageError(
            fmt::format("an input of {} x {} is too large for {}; expected at most {} pixels each way",
                        input.width, input.height, gl.renderer, gl.maxTextureSize));
    }
    return gl.renderer;
}

}  // namespace desk
