#pragma once

#include <array>
#include <memory>

#include "desk/gl/yuv/image.h"

namespace desk {

/// The planes of an imported image as GL textures, which an external texture is sampled from and a
/// renderbuffer is drawn to; an owner of the image. On a device they are the image's memory, here one is
/// copied to the other. Without an image it has no textures, and those below are 0. Belongs to one context:
/// everything but destruction needs it current, and what is not deleted goes with it.
class PlaneSet {
public:
    /// Takes the place of any earlier image.
    void SetImage(std::shared_ptr<Image> image);
    void Delete();
    /// One of GL_TEXTURE_MIN_FILTER and GL_TEXTURE_MAG_FILTER; kept from one image to the next.
    void SetFilter(GLenum name, GLint value) {
        (name == GL_TEXTURE_MIN_FILTER ? minFilter_ : magFilter_) = value;
    }

    /// Loads the textures with what the image's memory holds now.
    void Upload() const;
    /// Called before anything is drawn. The textures hold the image's memory afterwards, unless all of it
    /// `isReplaced` by what comes.
    void BeginDrawing(bool isReplaced);
    /// Brings the image's memory up to date with what was drawn.
    void Finish();

    GLuint Texture(Plane plane) const {
        return textures_[plane];
    }
    /// With the plane as its only attachment.
    GLuint Framebuffer(Plane plane);

private:
    std::shared_ptr<Image> image_;
    std::array<GLuint, PlaneCount> textures_{};
    std::array<GLuint, PlaneCount> framebuffers_{};
    GLint minFilter_ = GL_LINEAR;
    GLint magFilter_ = GL_LINEAR;
    bool isAheadOfMemory_ = false;
};

}  // namespace desk
