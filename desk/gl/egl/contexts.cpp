#include "desk/gl/egl/contexts.h"

namespace desk {
namespace {

thread_local std::shared_ptr<ContextState> currentState;

/// The application's attributes with a request for version 3 in place of one for version 2. A device's EGL
/// answers both with the same context; a driver that takes the number at its word would not compile
/// "#version 300 es".
std::vector<EGLint> RaiseVersion(const EGLint* attributes) {
    std::vector<EGLint> raised;
    for (; attributes != nullptr && *attributes != EGL_NONE; attributes += 2) {
        const bool isVersion2 = attributes[0] == EGL_CONTEXT_CLIENT_VERSION && attributes[1] == 2;
        raised.insert(raised.end(), {attributes[0], isVersion2 ? 3 : attributes[1]});
    }
    raised.push_back(EGL_NONE);
    return raised;
}

}  // namespace

HandleTable<ContextState>& Contexts() {
    static auto* contexts = new HandleTable<ContextState>;  // threads may outlive the static objects
    return *contexts;
}

ContextState* CurrentContext() {
    return currentState.get();
}

EGLContext CreateContext(EGLDisplay display, EGLConfig config, EGLContext share, const EGLint* attributes) {
    auto state = std::make_shared<ContextState>();
    EGLContext context = Egl().CreateContext(display, config, share, RaiseVersion(attributes).data());
    if (context != EGL_NO_CONTEXT) {
        Contexts().Add(display, context, std::move(state));
    }
    return context;
}

EGLBoolean DestroyContext(EGLDisplay display, EGLContext context) {
    // Before the driver may give the handle to another one.
    const auto dropped = Contexts().Remove(display, context);
    const EGLBoolean isDone = Egl().DestroyContext(display, context);
    if (isDone == EGL_FALSE && dropped) {
        Contexts().Add(display, context, dropped);
    }
    return isDone;
}

EGLBoolean MakeCurrent(EGLDisplay display, EGLSurface draw, EGLSurface read, EGLContext context) {
    const EGLBoolean isDone = Egl().MakeCurrent(display, draw, read, context);
    if (isDone == EGL_TRUE) {
        currentState = Contexts().Find(display, context);
        if (currentState) {
            currentState->BecomeCurrent();
        }
    }
    return isDone;
}

EGLBoolean ReleaseThread() {
    const EGLBoolean isDone = Egl().ReleaseThread();
    if (isDone == EGL_TRUE) {
        currentState.reset();
    }
    return isDone;
}

}  // namespace desk
