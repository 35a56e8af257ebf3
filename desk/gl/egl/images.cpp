#include <fmt/format.h>

#include <map>
#include <mutex>
#include <utility>

#include "desk/gl/driver/egl_call.h"
#include "desk/gl/driver/export.h"
#include "desk/gl/egl/display.h"
#include "desk/gl/yuv/image.h"

namespace desk {
namespace {

struct DisplayImage {
    EGLDisplay display;
    std::shared_ptr<Image> image;
};

/// The images that have an EGL handle.
struct ImageTable {
    std::mutex mutex;
    std::map<EGLImageKHR, DisplayImage> images;
};

ImageTable& Table() {
    static auto* table = new ImageTable;  // threads may outlive the static objects
    return *table;
}

EGLImageKHR CreateImage(EGLDisplay display, EGLContext context, EGLenum target, EGLClientBuffer buffer,
                        const EGLint* attributes) {
    if (target != EGL_NATIVE_BUFFER_ANDROID) {
        if (Egl().CreateImageKHR == nullptr) {
            throw EglError(EGL_BAD_PARAMETER,
                           fmt::format("expected the target EGL_NATIVE_BUFFER_ANDROID, got {:#x}", target));
        }
        return Egl().CreateImageKHR(display, context, target, buffer, attributes);
    }
    RequireInitialised(display);
    if (context != EGL_NO_CONTEXT) {
        throw EglError(EGL_BAD_CONTEXT, "expected EGL_NO_CONTEXT with a window buffer, got a context");
    }
    auto image = Image::Import(reinterpret_cast<ANativeWindowBuffer*>(buffer), attributes);
    const EGLImageKHR handle = AddImage(display, std::move(image));
    SetEglResult(EGL_SUCCESS);
    return handle;
}

EGLBoolean DestroyImage(EGLDisplay display, EGLImageKHR handle) {
    RequireInitialised(display);
    if (RemoveImage(display, handle)) {
        SetEglResult(EGL_SUCCESS);
        return EGL_TRUE;
    }
    if (handle == EGL_NO_IMAGE_KHR || Egl().DestroyImageKHR == nullptr) {
        throw EglError(EGL_BAD_PARAMETER, "expected an image of the display, got another handle");
    }
    return Egl().DestroyImageKHR(display, handle);
}

}  // namespace

EGLImageKHR AddImage(EGLDisplay display, std::shared_ptr<Image> image) {
    ImageTable& table = Table();
    const std::lock_guard<std::mutex> lock(table.mutex);
    // The address serves as the handle: while the image has a handle, no other image is at its place.
    const EGLImageKHR handle = image.get();
    table.images.emplace(handle, DisplayImage{display, std::move(image)});
    return handle;
}

std::shared_ptr<Image> FindImage(EGLImageKHR handle) {
    ImageTable& table = Table();
    const std::lock_guard<std::mutex> lock(table.mutex);
    const auto found = table.images.find(handle);
    return found == table.images.end() ? nullptr : found->second.image;
}

bool RemoveImage(EGLDisplay display, EGLImageKHR handle) {
    // Dropped after the lock, because the last owner of an image calls its buffer's owner.
    std::shared_ptr<Image> dropped;
    ImageTable& table = Table();
    const std::lock_guard<std::mutex> lock(table.mutex);
    const auto found = table.images.find(handle);
    if (found == table.images.end() || found->second.display != display) {
        return false;
    }
    dropped = std::move(found->second.image);
    table.images.erase(found);
    return true;
}

std::vector<std::shared_ptr<Image>> TakeImages(EGLDisplay display) {
    std::vector<std::shared_ptr<Image>> taken;
    ImageTable& table = Table();
    const std::lock_guard<std::mutex> lock(table.mutex);
    for (auto entry = table.images.begin(); entry != table.images.end();) {
        if (entry->second.display == display) {
            taken.push_back(std::move(entry->second.image));
            entry = table.images.erase(entry);
        } else {
            ++entry;
        }
    }
    return taken;
}

}  // namespace desk

DESK_GL_EXPORT EGLImageKHR EGLAPIENTRY eglCreateImageKHR(EGLDisplay display, EGLContext context,
                                                         EGLenum target, EGLClientBuffer buffer,
                                                         const EGLint* attributes) {
    return desk::EglCall("eglCreateImageKHR", EGLImageKHR{EGL_NO_IMAGE_KHR},
                         [&] { return desk::CreateImage(display, context, target, buffer, attributes); });
}

DESK_GL_EXPORT EGLBoolean EGLAPIENTRY eglDestroyImageKHR(EGLDisplay display, EGLImageKHR image) {
    return desk::EglCall("eglDestroyImageKHR", EGLBoolean{EGL_FALSE},
                         [&] { return desk::DestroyImage(display, image); });
}
