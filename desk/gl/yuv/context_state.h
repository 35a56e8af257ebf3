#pragma once

#include <memory>
#include <unordered_map>

#include "desk/gl/yuv/planes.h"
#include "desk/gl/yuv/program.h"

namespace desk {

/// What the layer knows of one context beyond what the driver knows. Only the thread that has the context
/// current touches it. Its GL objects go with the context; when the state is destroyed the context is gone.
class ContextState {
public:
    /// Called each time the context has become current.
    void BecomeCurrent();

    // As the GL's functions of these names. An image is null when its handle is none of the display's.
    void BindTexture(GLenum target, GLuint texture);
    void TexParameter(GLenum target, GLenum name, GLint value);
    void SetTextureImage(GLenum target, std::shared_ptr<Image> image);
    void DeleteTextures(GLsizei count, const GLuint* textures);
    void SetRenderbufferImage(GLenum target, std::shared_ptr<Image> image);
    void AttachRenderbuffer(GLenum target, GLenum attachment, GLenum renderbufferTarget, GLuint renderbuffer);
    void DeleteRenderbuffers(GLsizei count, const GLuint* renderbuffers);
    void Finish();
    /// The layer's own error, or else the driver's.
    GLenum TakeError();

    /// The first error stays until it is taken, as GL errors do.
    void SetError(GLenum error);
    /// Null when no external texture is bound to the unit.
    PlaneSet* ExternalTexture(GLuint unit);
    /// The renderbuffer that the bound draw framebuffer shows to the application; null when it shows none
    /// that was made from an image.
    PlaneSet* DrawTarget();

    PlanePrograms programs;

private:
    std::unordered_map<GLuint, GLuint> externalBindings_;  ///< texture by unit; 0 for none
    std::unordered_map<GLuint, PlaneSet> externalTextures_;
    std::unordered_map<GLuint, PlaneSet> renderTargets_;  ///< by renderbuffer
    GLenum error_ = GL_NO_ERROR;
    bool isListening_ = false;
    LiveCount live_{&DeskGlCounters::liveContexts};
};

}  // namespace desk
