#pragma once

#include <exception>
#include <memory>
#include <unordered_map>
#include <vector>

#include "desk/gl/yuv/external_texture.h"
#include "desk/gl/yuv/program.h"
#include "desk/gl/yuv/render_target.h"

namespace desk {

/// What the layer knows of one context beyond what the driver knows. Only the thread that has the context
/// current touches it. Its GL objects go with the context; when the state is destroyed the context is gone.
class ContextState {
public:
    /// Called each time the context has become current.
    void BecomeCurrent();

    void BindExternalTexture(GLuint unit, GLuint texture);
    /// Null when no external texture is bound to the unit.
    ExternalTexture* BoundExternalTexture(GLuint unit);
    /// Does nothing to a texture that is not external.
    void DeleteExternalTexture(GLuint texture);

    /// Gives the renderbuffer the image in place of any storage it had.
    void SetRenderTarget(GLuint renderbuffer, std::shared_ptr<Image> image);
    /// Null when the renderbuffer was not made from an image.
    RenderTarget* FindRenderTarget(GLuint renderbuffer);
    void DeleteRenderTarget(GLuint renderbuffer);
    /// The target that the bound draw framebuffer shows to the application; null when it is an ordinary one.
    RenderTarget* DrawTarget();
    void FinishRenderTargets();

    void AddProgram(PlaneProgram program);
    /// The program in use; null when it needs nothing of the layer.
    const PlaneProgram* ProgramInUse() const;
    void ForgetProgram(GLuint program);
    /// A program deleted while in use stays until another one is used, so what to forget is what is gone.
    void ForgetDeletedPrograms();

    /// The image that an image target function was given. Null when it is not the layer's; the driver's own
    /// function has then dealt with it, or the error is set where the driver has none.
    std::shared_ptr<Image> ImageFor(GLenum target, GLeglImageOES handle,
                                    PFNGLEGLIMAGETARGETTEXTURE2DOESPROC driverFunction);

    /// The first error stays until it is taken, as GL errors do.
    void SetError(GLenum error);
    /// GL_NO_ERROR when there is none.
    GLenum TakeError();

private:
    std::unordered_map<GLuint, GLuint> externalBindings_;  ///< texture by unit
    std::unordered_map<GLuint, ExternalTexture> externalTextures_;
    std::unordered_map<GLuint, RenderTarget> renderTargets_;  ///< by renderbuffer
    std::unordered_map<GLuint, PlaneProgram> programs_;       ///< by the application's program
    GLenum error_ = GL_NO_ERROR;
    bool isListening_ = false;
    LiveCount live_{GlobalCounters().liveContexts};
};

/// Null when the calling thread has no context current.
ContextState* CurrentContext();

/// Hands over the table's share of the display's contexts, which leaves only those that are still current.
std::vector<std::shared_ptr<ContextState>> TakeContexts(EGLDisplay display);

/// Runs the body of an exported GL function on the current context; without one there is nothing to do, as in
/// any GL. What it throws becomes GL_OUT_OF_MEMORY, since nothing may be thrown at a caller of a C library.
template <typename Body>
void GlCall(Body&& body) noexcept {
    ContextState* context = CurrentContext();
    if (context == nullptr) {
        return;
    }
    try {
        body(*context);
    } catch (const std::exception&) {
        context->SetError(GL_OUT_OF_MEMORY);
    }
}

}  // namespace desk
