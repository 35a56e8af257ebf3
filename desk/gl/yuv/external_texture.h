#pragma once

#include <memory>
#include <optional>

#include "desk/gl/yuv/planes.h"

namespace desk {

/// What the context knows of one texture name that was bound to GL_TEXTURE_EXTERNAL_OES. The name itself has
/// no object in the driver; the planes have.
class ExternalTexture {
public:
    /// Takes the place of any earlier image.
    void SetImage(std::shared_ptr<Image> image);
    /// One of GL_TEXTURE_MIN_FILTER and GL_TEXTURE_MAG_FILTER; kept from one image to the next.
    void SetFilter(GLenum name, GLint value);
    /// Frees the planes and gives up the image. Needs the texture's context current.
    void Delete();

    /// Loads the planes with what the image's memory holds now.
    void Upload() const;
    /// 0 while there is no image, which a sampler reads as black.
    GLuint PlaneName(Plane plane) const;

private:
    struct Imported {
        explicit Imported(std::shared_ptr<Image> image) : planes(std::move(image)) {}
        PlaneTextures planes;
        LiveCount live{GlobalCounters().liveTextures};
    };
    std::optional<Imported> imported_;
    GLint minFilter_ = GL_LINEAR;
    GLint magFilter_ = GL_LINEAR;
};

}  // namespace desk
