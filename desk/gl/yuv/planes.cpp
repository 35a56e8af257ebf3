#include "desk/gl/yuv/planes.h"

#include <utility>

#include "desk/gl/driver/gl_scope.h"

namespace desk {
namespace {

/// How a plane's samples look to the GL.
constexpr struct {
    GLenum internalFormat;
    GLenum format;
} Formats[PlaneCount] = {{GL_R8, GL_RED}, {GL_RG8, GL_RG}};

/// One transfer of a plane between the GL and rows of any length in the image's memory. Afterwards GL's
/// defaults hold again, which the desk's applications leave in force.
template <typename Transfer>
void WithRowLength(GLenum rowLength, GLenum alignment, const Image& image, Plane plane, Transfer transfer) {
    const PlaneLayout layout = image.Layout(plane);
    REAL(glPixelStorei)(rowLength, layout.rowLength);
    REAL(glPixelStorei)(alignment, 1);
    transfer(0, 0, layout.width, layout.height, Formats[plane].format, GLenum{GL_UNSIGNED_BYTE}, layout.data);
    REAL(glPixelStorei)(rowLength, 0);
    REAL(glPixelStorei)(alignment, 4);
}

}  // namespace

void PlaneSet::SetImage(std::shared_ptr<Image> image) {
    Delete();
    image_ = std::move(image);
    REAL(glGenTextures)(PlaneCount, textures_.data());
    const TextureScope binding;
    for (const Plane plane : Planes) {
        BindTexture2D(textures_[plane]);
        const PlaneLayout layout = image_->Layout(plane);
        REAL(glTexStorage2D)(GL_TEXTURE_2D, 1, Formats[plane].internalFormat, layout.width, layout.height);
        REAL(glTexParameteri)(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
        REAL(glTexParameteri)(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    }
}

void PlaneSet::Delete() {
    REAL(glDeleteFramebuffers)(PlaneCount, framebuffers_.data());
    REAL(glDeleteTextures)(PlaneCount, textures_.data());
    framebuffers_ = {};
    textures_ = {};
    image_.reset();
    isAheadOfMemory_ = false;
}

void PlaneSet::Upload() const {
    if (!image_) {
        return;
    }
    const TextureScope binding;
    for (const Plane plane : Planes) {
        BindTexture2D(textures_[plane]);
        REAL(glTexParameteri)(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, minFilter_);
        REAL(glTexParameteri)(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, magFilter_);
        WithRowLength(GL_UNPACK_ROW_LENGTH, GL_UNPACK_ALIGNMENT, *image_, plane, [](auto... pixels) {
            REAL(glTexSubImage2D)(GL_TEXTURE_2D, 0, pixels...);
        });
    }
}

void PlaneSet::BeginDrawing(bool isReplaced) {
    if (!isAheadOfMemory_ && !isReplaced) {
        Upload();
    }
    isAheadOfMemory_ = true;
}

void PlaneSet::Finish() {
    if (!isAheadOfMemory_) {
        return;
    }
    const ReadFramebufferScope binding;
    for (const Plane plane : Planes) {
        BindFramebuffer<GL_READ_FRAMEBUFFER>(Framebuffer(plane));
        // The planes' formats are what drivers choose for themselves; one that did not would say so.
        WithRowLength(GL_PACK_ROW_LENGTH, GL_PACK_ALIGNMENT, *image_, plane, REAL(glReadPixels));
    }
    isAheadOfMemory_ = false;
}

GLuint PlaneSet::Framebuffer(Plane plane) {
    GLuint& framebuffer = framebuffers_[plane];
    if (framebuffer == 0) {
        REAL(glGenFramebuffers)(1, &framebuffer);
        const DrawFramebufferScope binding;
        BindFramebuffer<GL_DRAW_FRAMEBUFFER>(framebuffer);
        const GLuint texture = textures_[plane];
        REAL(glFramebufferTexture2D)(GL_DRAW_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, texture, 0);
    }
    return framebuffer;
}

}  // namespace desk
