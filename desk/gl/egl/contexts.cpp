#include <array>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

#include "desk/gl/driver/egl_call.h"
#include "desk/gl/driver/export.h"
#include "desk/gl/yuv/context_state.h"

namespace desk {
namespace {

/// The contexts that are not destroyed. A state has two owners, this table and the thread that has the
/// context current, so that a context destroyed while current lives until it is released, as EGL has it.
struct ContextTable {
    std::mutex mutex;
    std::map<std::pair<EGLDisplay, EGLContext>, std::shared_ptr<ContextState>> states;
};

ContextTable& Table() {
    static auto* table = new ContextTable;  // threads may outlive the static objects
    return *table;
}

thread_local std::shared_ptr<ContextState> currentState;

std::shared_ptr<ContextState> FindContext(EGLDisplay display, EGLContext context) {
    ContextTable& table = Table();
    const std::lock_guard<std::mutex> lock(table.mutex);
    const auto found = table.states.find({display, context});
    return found == table.states.end() ? nullptr : found->second;
}

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

EGLContext CreateContext(EGLDisplay display, EGLConfig config, EGLContext share, const EGLint* attributes) {
    auto state = std::make_shared<ContextState>();
    EGLContext context = Egl().CreateContext(display, config, share, RaiseVersion(attributes).data());
    if (context == EGL_NO_CONTEXT) {
        context = Egl().CreateContext(display, config, share, attributes);
    }
    if (context != EGL_NO_CONTEXT) {
        ContextTable& table = Table();
        const std::lock_guard<std::mutex> lock(table.mutex);
        table.states[{display, context}] = std::move(state);
    }
    return context;
}

EGLBoolean DestroyContext(EGLDisplay display, EGLContext context) {
    // Dropped after the lock, because a state may be the last owner of images, and those call their
    // buffers' owner.
    std::shared_ptr<ContextState> dropped;
    ContextTable& table = Table();
    const std::lock_guard<std::mutex> lock(table.mutex);
    const EGLBoolean isDone = Egl().DestroyContext(display, context);
    const auto found = table.states.find({display, context});
    if (isDone == EGL_TRUE && found != table.states.end()) {
        dropped = std::move(found->second);
        table.states.erase(found);
    }
    return isDone;
}

}  // namespace

ContextState* CurrentContext() {
    return currentState.get();
}

std::vector<std::shared_ptr<ContextState>> TakeContexts(EGLDisplay display) {
    std::vector<std::shared_ptr<ContextState>> taken;
    ContextTable& table = Table();
    const std::lock_guard<std::mutex> lock(table.mutex);
    for (auto entry = table.states.begin(); entry != table.states.end();) {
        if (entry->first.first == display) {
            taken.push_back(std::move(entry->second));
            entry = table.states.erase(entry);
        } else {
            ++entry;
        }
    }
    return taken;
}

}  // namespace desk

DESK_GL_EXPORT EGLContext EGLAPIENTRY eglCreateContext(EGLDisplay display, EGLConfig config, EGLContext share,
                                                       const EGLint* attributes) {
    return desk::EglCall("eglCreateContext", EGLContext{EGL_NO_CONTEXT},
                         [&] { return desk::CreateContext(display, config, share, attributes); });
}

DESK_GL_EXPORT EGLBoolean EGLAPIENTRY eglDestroyContext(EGLDisplay display, EGLContext context) {
    return desk::EglCall("eglDestroyContext", EGLBoolean{EGL_FALSE},
                         [&] { return desk::DestroyContext(display, context); });
}

DESK_GL_EXPORT EGLBoolean EGLAPIENTRY eglMakeCurrent(EGLDisplay display, EGLSurface draw, EGLSurface read,
                                                     EGLContext context) {
    return desk::EglCall("eglMakeCurrent", EGLBoolean{EGL_FALSE}, [&] {
        const EGLBoolean isDone = desk::Egl().MakeCurrent(display, draw, read, context);
        if (isDone == EGL_TRUE) {
            desk::currentState = desk::FindContext(display, context);
            if (desk::currentState) {
                desk::currentState->BecomeCurrent();
            }
        }
        return isDone;
    });
}

DESK_GL_EXPORT EGLBoolean EGLAPIENTRY eglReleaseThread() {
    return desk::EglCall("eglReleaseThread", EGLBoolean{EGL_FALSE}, [] {
        const EGLBoolean isDone = desk::Egl().ReleaseThread();
        if (isDone == EGL_TRUE) {
            desk::currentState.reset();
        }
        return isDone;
    });
}
