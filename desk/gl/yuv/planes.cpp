#include "desk/gl/yuv/planes.h"

#include <algorithm>
#include <utility>

#include "desk/gl/driver/gl_scope.h"

namespace desk {
namespace {

/// How a plane's samples look to the GL.
struct PlaneFormat {
    GLenum internalFormat;
    GLenum format;
    GLint channels;  ///< of one byte each
};
constexpr PlaneFormat PlaneFormats[PlaneCount] = {{GL_R8, GL_RED, 1}, {GL_RG8, GL_RG, 2}};

/// Rows of any length in client memory, for one transfer. Afterwards GL's defaults hold again, which the
/// desk's applications leave in force.
class RowLengthScope {
public:
    RowLengthScope(GLenum rowLength, GLenum alignment, GLint pixels)
        : rowLength_(rowLength), alignment_(alignment) {
        Gl().PixelStorei(rowLength_, pixels);
        Gl().PixelStorei(alignment_, 1);
    }
    ~RowLengthScope() {
        Gl().PixelStorei(rowLength_, 0);
        Gl().PixelStorei(alignment_, 4);
    }
    RowLengthScope(const RowLengthScope&) = delete;
    RowLengthScope& operator=(const RowLengthScope&) = delete;

private:
    GLenum rowLength_;
    GLenum alignment_;
};

}  // namespace

void PlaneSet::SetImage(std::shared_ptr<Image> image) {
    Delete();
    image_ = std::move(image);
    Gl().GenTextures(PlaneCount, textures_.data());
    const TextureScope binding;
    for (const Plane plane : Planes) {
        BindTexture2D(textures_[plane]);
        Gl().TexStorage2D(GL_TEXTURE_2D, 1, PlaneFormats[plane].internalFormat, image_->Width(plane),
                          image_->Height(plane));
        Gl().TexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
        Gl().TexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    }
    ApplyFilters();
}

void PlaneSet::Delete() {
    Gl().DeleteFramebuffers(PlaneCount, framebuffers_.data());
    Gl().DeleteTextures(PlaneCount, textures_.data());
    framebuffers_ = {};
    textures_ = {};
    image_.reset();
    isAheadOfMemory_ = false;
}

void PlaneSet::SetFilter(GLenum name, GLint value) {
    (name == GL_TEXTURE_MIN_FILTER ? minFilter_ : magFilter_) = value;
    if (image_) {
        ApplyFilters();
    }
}

void PlaneSet::ApplyFilters() const {
    const TextureScope binding;
    for (const GLuint texture : textures_) {
        BindTexture2D(texture);
        Gl().TexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, minFilter_);
        Gl().TexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, magFilter_);
    }
}

void PlaneSet::Upload() const {
    if (!image_) {
        return;
    }
    const TextureScope binding;
    for (const Plane plane : Planes) {
        const RowLengthScope rows(GL_UNPACK_ROW_LENGTH, GL_UNPACK_ALIGNMENT, image_->RowLength(plane));
        BindTexture2D(textures_[plane]);
        Gl().TexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, image_->Width(plane), image_->Height(plane),
                           PlaneFormats[plane].format, GL_UNSIGNED_BYTE, image_->Data(plane));
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
        BindReadFramebuffer(Framebuffer(plane));
        ReadBack(plane);
    }
    isAheadOfMemory_ = false;
}

GLuint PlaneSet::Framebuffer(Plane plane) {
    GLuint& framebuffer = framebuffers_[plane];
    if (framebuffer == 0) {
        Gl().GenFramebuffers(1, &framebuffer);
        const DrawFramebufferScope binding;
        BindDrawFramebuffer(framebuffer);
        Gl().FramebufferTexture2D(GL_DRAW_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, textures_[plane],
                                  0);
    }
    return framebuffer;
}

void PlaneSet::ReadBack(Plane plane) {
    const PlaneFormat& format = PlaneFormats[plane];
    const int width = image_->Width(plane);
    const int height = image_->Height(plane);
    const bool isDirect =
        static_cast<GLenum>(GlInteger(GL_IMPLEMENTATION_COLOR_READ_FORMAT)) == format.format &&
        GlInteger(GL_IMPLEMENTATION_COLOR_READ_TYPE) == GL_UNSIGNED_BYTE;
    if (isDirect) {
        const RowLengthScope rows(GL_PACK_ROW_LENGTH, GL_PACK_ALIGNMENT, image_->RowLength(plane));
        Gl().ReadPixels(0, 0, width, height, format.format, GL_UNSIGNED_BYTE, image_->Data(plane));
        return;
    }
    rgba_.resize(size_t{4} * static_cast<size_t>(width) * static_cast<size_t>(height));
    Gl().ReadPixels(0, 0, width, height, GL_RGBA, GL_UNSIGNED_BYTE, rgba_.data());
    const uint8_t* from = rgba_.data();
    for (int row = 0; row < height; ++row) {
        uint8_t* to = image_->Data(plane) + ptrdiff_t{row} * image_->RowLength(plane) * format.channels;
        for (int column = 0; column < width; ++column, from += 4) {
            to = std::copy_n(from, format.channels, to);
        }
    }
}

}  // namespace desk
