#include "desk/gl/egl/display.h"

#include <dlfcn.h>
#include <fmt/format.h>
#include <link.h>

#include <array>
#include <cstring>
#include <map>
#include <vector>

#include "desk/base/guarded.h"
#include "desk/gl/driver/reports.h"

namespace desk {
namespace {

template <typename Owned>
using Owners = std::map<void*, std::shared_ptr<Owned>>;  ///< by EGL handle

/// What the layer keeps of a display from its first initialisation to its last termination.
struct Display {
    int initialisations = 0;  ///< not yet terminated
    /// Those not destroyed. A state has two owners, the display and the thread that has the context current,
    /// so that a context destroyed while current lives until it is released, as EGL has it.
    Owners<ContextState> contexts;
    Owners<Image> images;  ///< that have a handle
};
using Displays = std::map<EGLDisplay, Display>;

// What is taken from it goes after the lock, because the last owner of an image calls its buffer's owner.
auto& displays = *new Guarded<Displays>;  // threads may outlive the static objects

thread_local std::shared_ptr<ContextState> currentState;

/// What `use` makes of the display. Throws EglError unless it has been initialised and not terminated since.
template <typename Use>
auto WithDisplay(EGLDisplay display, Use use) {
    return displays.With([&](Displays& all) {
        const auto found = all.find(display);
        if (found == all.end()) {
            throw display == EGL_NO_DISPLAY
                ? EglError(EGL_BAD_DISPLAY, "expected a display, got EGL_NO_DISPLAY")
                : EglError(EGL_NOT_INITIALIZED, "expected an initialised display, got one that is not");
        }
        return use(found->second);
    });
}

/// Null when the display has no such handle.
template <typename Owned>
std::shared_ptr<Owned> Find(Owners<Owned> Display::*owners, EGLDisplay display, void* handle) {
    return displays.With([=](Displays& all) {
        const auto found = all.find(display);
        const bool isKnown = found != all.end() && (found->second.*owners).count(handle) != 0;
        return isKnown ? (found->second.*owners)[handle] : nullptr;
    });
}

bool HasClientExtension(const char* name) {
    const char* extensions = REAL(eglQueryString)(EGL_NO_DISPLAY, EGL_EXTENSIONS);
    return extensions != nullptr && std::strstr(extensions, name) != nullptr;
}

bool CanInitialise(EGLDisplay display) {
    if (display == EGL_NO_DISPLAY || REAL(eglInitialize)(display, nullptr, nullptr) == EGL_FALSE) {
        return false;
    }
    REAL(eglTerminate)(display);
    return true;
}

// Of ANGLE's own header, which no package has.
constexpr EGLenum PlatformAngle = 0x3202;
constexpr EGLAttrib AngleType = 0x3203;
constexpr EGLAttrib AngleTypeVulkan = 0x3450;
constexpr EGLAttrib AngleDeviceType = 0x3209;
constexpr EGLAttrib AngleDeviceTypeSwiftShader = 0x3487;

constexpr EGLAttrib SwiftShader[] = {AngleType, AngleTypeVulkan, AngleDeviceType, AngleDeviceTypeSwiftShader,
                                     EGL_NONE};

/// What needs no window system, the best first: ANGLE has the surfaceless platform too, but over the
/// machine's own Vulkan, of which there may be none.
constexpr struct {
    const char* extension;
    EGLenum platform;
    const EGLAttrib* attributes;
} HeadlessPlatforms[] = {
    {"EGL_ANGLE_platform_angle_device_type_swiftshader", PlatformAngle, SwiftShader},
    {"EGL_MESA_platform_surfaceless", EGL_PLATFORM_SURFACELESS_MESA, nullptr},
};

EGLDisplay OpenHeadlessDisplay() {
    for (const auto& row : HeadlessPlatforms) {
        if (HasClientExtension(row.extension)) {
            const EGLDisplay display =
                REAL(eglGetPlatformDisplay)(row.platform, EGL_DEFAULT_DISPLAY, row.attributes);
            if (CanInitialise(display)) {
                return display;
            }
        }
    }
    std::array<EGLDeviceEXT, 16> devices{};
    EGLint count = 0;
    if (HasClientExtension("EGL_EXT_platform_device")) {
        REAL(eglQueryDevicesEXT)(EGLint{devices.size()}, devices.data(), &count);
    }
    for (auto* device = devices.begin(); device != devices.begin() + count; ++device) {
        const EGLDisplay display = REAL(eglGetPlatformDisplay)(EGL_PLATFORM_DEVICE_EXT, *device, nullptr);
        if (CanInitialise(display)) {
            return display;
        }
    }
    return REAL(eglGetDisplay)(EGL_DEFAULT_DISPLAY);
}

/// Keeps the driver that EGL has loaded in the process for good, as a device does: Mesa and ANGLE would
/// unload it with the last display and load it again with the next.
void KeepDriver() {
    dl_iterate_phdr(
        [](dl_phdr_info* object, size_t /*size*/, void* /*unused*/) {
            for (const char* part : {"_dri.so", "/libvulkan", "/libvk_"}) {
                if (std::strstr(object->dlpi_name, part) != nullptr) {
                    dlopen(object->dlpi_name, RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE);
                }
            }
            return 0;
        },
        nullptr);
}

void CountDisplays(const Displays& all) {
    globalCounters.With([&all](DeskGlCounters& counters) { counters.initialisedDisplays = all.size(); });
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

}  // namespace

EGLDisplay GetDisplay(EGLNativeDisplayType native) {
    if (native != EGL_DEFAULT_DISPLAY) {
        return REAL(eglGetDisplay)(native);
    }
    static const EGLDisplay headless = OpenHeadlessDisplay();
    SetEglResult(EGL_SUCCESS);
    return headless;
}

EGLBoolean Initialise(EGLDisplay display, EGLint* major, EGLint* minor) {
    return displays.With([=](Displays& all) {
        const EGLBoolean isDone = REAL(eglInitialize)(display, major, minor);
        if (isDone == EGL_TRUE) {
            KeepDriver();
            ++all[display].initialisations;
            CountDisplays(all);
        }
        return isDone;
    });
}

EGLBoolean Terminate(EGLDisplay display) {
    Displays::node_type ended;
    return displays.With([&](Displays& all) -> EGLBoolean {
        const auto found = all.find(display);
        if (found != all.end() && found->second.initialisations > 1) {
            --found->second.initialisations;
            SetEglResult(EGL_SUCCESS);
            return EGL_TRUE;
        }
        const EGLBoolean isDone = REAL(eglTerminate)(display);
        if (isDone == EGL_TRUE) {
            ended = all.extract(display);
            CountDisplays(all);
        }
        return isDone;
    });
}

ContextState* CurrentContext() {
    return currentState.get();
}

EGLContext CreateContext(EGLDisplay display, EGLConfig config, EGLContext share, const EGLint* attributes) {
    auto state = std::make_shared<ContextState>();
    EGLContext context = REAL(eglCreateContext)(display, config, share, RaiseVersion(attributes).data());
    if (context != EGL_NO_CONTEXT) {
        displays.With([&](Displays& all) { all[display].contexts[context] = std::move(state); });
    }
    return context;
}

EGLBoolean DestroyContext(EGLDisplay display, EGLContext context) {
    Owners<ContextState>::node_type dropped;
    // Locked all along: the driver may give the handle to another one at once.
    return displays.With([&](Displays& all) {
        const EGLBoolean isDone = REAL(eglDestroyContext)(display, context);
        if (isDone == EGL_TRUE) {
            dropped = all[display].contexts.extract(context);
        }
        return isDone;
    });
}

EGLBoolean MakeCurrent(EGLDisplay display, EGLSurface draw, EGLSurface read, EGLContext context) {
    const EGLBoolean isDone = REAL(eglMakeCurrent)(display, draw, read, context);
    if (isDone == EGL_TRUE) {
        currentState = Find(&Display::contexts, display, context);
        if (currentState) {
            currentState->BecomeCurrent();
        }
    }
    return isDone;
}

EGLBoolean ReleaseThread() {
    const EGLBoolean isDone = REAL(eglReleaseThread)();
    if (isDone == EGL_TRUE) {
        currentState.reset();
    }
    return isDone;
}

EGLImageKHR CreateImage(EGLDisplay display, EGLContext context, EGLenum target, EGLClientBuffer buffer,
                        const EGLint* attributes) {
    WithDisplay(display, [](Display& /*owner*/) {});
    if (target != EGL_NATIVE_BUFFER_ANDROID) {
        throw EglError(EGL_BAD_PARAMETER,
                       fmt::format("expected the target EGL_NATIVE_BUFFER_ANDROID, got {:#x}", target));
    }
    if (context != EGL_NO_CONTEXT) {
        throw EglError(EGL_BAD_CONTEXT, "expected EGL_NO_CONTEXT with a window buffer, got a context");
    }
    auto image = std::make_shared<Image>(reinterpret_cast<ANativeWindowBuffer*>(buffer), attributes);
    // The address serves as the handle: while the image has a handle, no other image is at its place.
    const EGLImageKHR handle = image.get();
    WithDisplay(display, [&](Display& owner) { owner.images[handle] = std::move(image); });
    SetEglResult(EGL_SUCCESS);
    return handle;
}

EGLBoolean DestroyImage(EGLDisplay display, EGLImageKHR handle) {
    if (WithDisplay(display, [=](Display& owner) { return owner.images.extract(handle); }).empty()) {
        throw EglError(EGL_BAD_PARAMETER, "expected an image of the display, got another handle");
    }
    SetEglResult(EGL_SUCCESS);
    return EGL_TRUE;
}

std::shared_ptr<Image> FindImage(EGLImageKHR handle) {
    return Find(&Display::images, REAL(eglGetCurrentDisplay)(), handle);
}

}  // namespace desk
