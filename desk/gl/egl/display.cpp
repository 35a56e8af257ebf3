#include "desk/gl/egl/display.h"

#include <dlfcn.h>
#include <link.h>

#include <array>
#include <cstring>
#include <map>

#include "desk/base/guarded.h"
#include "desk/gl/driver/counters.h"
#include "desk/gl/driver/errors.h"
#include "desk/gl/egl/objects.h"

namespace desk {
namespace {

/// How often each display was initialised and not yet terminated.
auto& initialisations = *new Guarded<std::map<EGLDisplay, int>>;  // threads may outlive the static objects

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

EGLDisplay FirstDeviceDisplay() {
    std::array<EGLDeviceEXT, 16> devices{};
    EGLint count = 0;
    if (REAL(eglQueryDevicesEXT)(EGLint{devices.size()}, devices.data(), &count) == EGL_FALSE) {
        return EGL_NO_DISPLAY;
    }
    for (size_t i = 0; i < static_cast<size_t>(count); ++i) {
        const EGLDisplay display = REAL(eglGetPlatformDisplay)(EGL_PLATFORM_DEVICE_EXT, devices[i], nullptr);
        if (CanInitialise(display)) {
            return display;
        }
    }
    return EGL_NO_DISPLAY;
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
    if (HasClientExtension("EGL_EXT_platform_device")) {
        const EGLDisplay display = FirstDeviceDisplay();
        if (display != EGL_NO_DISPLAY) {
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

void CountDisplays(uint64_t count) {
    globalCounters.With([count](DeskGlCounters& counters) { counters.initialisedDisplays = count; });
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
    return initialisations.With([=](auto& counts) {
        const EGLBoolean isDone = REAL(eglInitialize)(display, major, minor);
        if (isDone == EGL_TRUE) {
            KeepDriver();
            ++counts[display];
            CountDisplays(counts.size());
        }
        return isDone;
    });
}

EGLBoolean Terminate(EGLDisplay display) {
    // Dropped after the lock, because the last owner of an image calls its buffer's owner.
    std::vector<std::shared_ptr<ContextState>> endedContexts;
    std::vector<std::shared_ptr<Image>> endedImages;
    return initialisations.With([&](auto& counts) -> EGLBoolean {
        const auto found = counts.find(display);
        if (found != counts.end() && found->second > 1) {
            --found->second;
            SetEglResult(EGL_SUCCESS);
            return EGL_TRUE;
        }
        const EGLBoolean isDone = REAL(eglTerminate)(display);
        if (isDone == EGL_TRUE) {
            counts.erase(display);
            CountDisplays(counts.size());
            endedContexts = contexts.TakeAll(display);
            endedImages = images.TakeAll(display);
        }
        return isDone;
    });
}

void RequireInitialised(EGLDisplay display) {
    if (initialisations.With([=](auto& counts) { return counts.count(display) == 0; })) {
        throw display == EGL_NO_DISPLAY
            ? EglError(EGL_BAD_DISPLAY, "expected a display, got EGL_NO_DISPLAY")
            : EglError(EGL_NOT_INITIALIZED, "expected an initialised display, got one that is not");
    }
}

}  // namespace desk
