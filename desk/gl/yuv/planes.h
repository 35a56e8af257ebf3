#pragma once

#include <array>
#include <memory>

#include "desk/gl/yuv/image.h"

namespace desk {

/// How a plane's samples look to the GL.
struct PlaneFormat {
    GLenum internalFormat;
    GLenum format;
    GLint channels;  ///< of one byte each
};
constexpr std::array<PlaneFormat, PlaneCount> PlaneFormats = {{{GL_R8, GL_RED, 1}, {GL_RG8, GL_RG, 2}}};

/// One GL texture for each plane of an image; an owner of the image. The textures belong to the context that
/// was current at construction and go with it, or earlier by Delete(), which needs that context current.
class PlaneTextures {
public:
    explicit PlaneTextures(std::shared_ptr<Image> image);
    PlaneTextures(const PlaneTextures&) = delete;
    PlaneTextures& operator=(const PlaneTextures&) = delete;
    void Delete();

    /// Copies the image's memory to the textures.
    void Upload() const;
    void SetParameter(GLenum name, GLint value) const;

    const Image& Source() const {
        return *image_;
    }
    GLuint Name(Plane plane) const {
        return textures_[plane];
    }

private:
    std::shared_ptr<Image> image_;
    std::array<GLuint, PlaneCount> textures_{};
};

}  // namespace desk
