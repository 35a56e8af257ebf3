#pragma once

#include <array>
#include <memory>
#include <vector>

#include "desk/gl/yuv/planes.h"

namespace desk {

/// A renderbuffer made from an image. Its planes are colour attachments of their own; on a device they are
/// the image's memory, here the memory follows when the context finishes. Belongs to the context that was
/// current at construction, and everything but destruction needs that context current.
class RenderTarget {
public:
    explicit RenderTarget(std::shared_ptr<Image> image);
    void Delete();

    /// Called before anything is drawn. The planes hold the image's memory afterwards, unless all of it
    /// `isReplaced` by what comes.
    void BeginDrawing(bool isReplaced);
    /// Brings the image's memory up to date.
    void Finish();

    GLuint LumaTexture() const {
        return planes_.Name(Luma);
    }
    GLuint ChromaFramebuffer() const {
        return framebuffers_[Chroma];
    }

private:
    void ReadBack(Plane plane);

    PlaneTextures planes_;
    std::array<GLuint, PlaneCount> framebuffers_{};
    bool isAheadOfMemory_ = false;
    std::vector<uint8_t> rgba_;  ///< a plane as drivers without one- and two-channel reads give it
    LiveCount live_;
};

}  // namespace desk
