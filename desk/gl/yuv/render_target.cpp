#include "desk/gl/yuv/render_target.h"

#include <algorithm>
#include <utility>

#include "desk/gl/driver/export.h"
#include "desk/gl/driver/gl_scope.h"
#include "desk/gl/yuv/context_state.h"

namespace desk {

RenderTarget::RenderTarget(std::shared_ptr<Image> image)
    : planes_(std::move(image)), live_(GlobalCounters().liveRenderTargets) {
    Gl().GenFramebuffers(PlaneCount, framebuffers_.data());
    const DrawFramebufferScope binding;
    for (const Plane plane : Planes) {
        BindDrawFramebuffer(framebuffers_[plane]);
        Gl().FramebufferTexture2D(GL_DRAW_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D,
                                  planes_.Name(plane), 0);
    }
}

void RenderTarget::Delete() {
    Gl().DeleteFramebuffers(PlaneCount, framebuffers_.data());
    planes_.Delete();
}

void RenderTarget::BeginDrawing(bool isReplaced) {
    if (!isAheadOfMemory_ && !isReplaced) {
        planes_.Upload();
    }
    isAheadOfMemory_ = true;
}

void RenderTarget::Finish() {
    if (!isAheadOfMemory_) {
        return;
    }
    const ReadFramebufferScope binding;
    for (const Plane plane : Planes) {
        BindReadFramebuffer(framebuffers_[plane]);
        ReadBack(plane);
    }
    isAheadOfMemory_ = false;
    ++GlobalCounters().readbacks;
}

void RenderTarget::ReadBack(Plane plane) {
    const Image& image = planes_.Source();
    const PlaneFormat& format = PlaneFormats[plane];
    const int width = image.Width(plane);
    const int height = image.Height(plane);
    PixelTransferScope transfer(PixelTransferScope::Pack);

    const bool isDirect =
        static_cast<GLenum>(GlInteger(GL_IMPLEMENTATION_COLOR_READ_FORMAT)) == format.format &&
        GlInteger(GL_IMPLEMENTATION_COLOR_READ_TYPE) == GL_UNSIGNED_BYTE;
    if (isDirect) {
        transfer.SetRowLength(image.RowLength(plane));
        Gl().ReadPixels(0, 0, width, height, format.format, GL_UNSIGNED_BYTE, image.Data(plane));
        return;
    }
    rgba_.resize(size_t{4} * static_cast<size_t>(width) * static_cast<size_t>(height));
    Gl().ReadPixels(0, 0, width, height, GL_RGBA, GL_UNSIGNED_BYTE, rgba_.data());
    const uint8_t* from = rgba_.data();
    for (int row = 0; row < height; ++row) {
        uint8_t* to = image.Data(plane) + ptrdiff_t{row} * image.RowLength(plane) * format.channels;
        for (int column = 0; column < width; ++column, from += 4) {
            to = std::copy_n(from, format.channels, to);
        }
    }
}

namespace {

void SetRenderbufferImage(ContextState& context, GLenum target, GLeglImageOES handle) {
    auto image = context.ImageFor(target, handle, Gl().EGLImageTargetRenderbufferStorageOES);
    if (!image) {
        return;
    }
    const auto renderbuffer = static_cast<GLuint>(GlInteger(GL_RENDERBUFFER_BINDING));
    if (target != GL_RENDERBUFFER || renderbuffer == 0) {
        context.SetError(target == GL_RENDERBUFFER ? GL_INVALID_OPERATION : GL_INVALID_ENUM);
        return;
    }
    context.SetRenderTarget(renderbuffer, std::move(image));
}

void AttachRenderbuffer(ContextState& context, GLenum target, GLenum attachment, GLenum renderbufferTarget,
                        GLuint renderbuffer) {
    const RenderTarget* planes = context.FindRenderTarget(renderbuffer);
    if (planes == nullptr || renderbufferTarget != GL_RENDERBUFFER) {
        Gl().FramebufferRenderbuffer(target, attachment, renderbufferTarget, renderbuffer);
    } else if (attachment != GL_COLOR_ATTACHMENT0) {
        context.SetError(GL_INVALID_OPERATION);
    } else {
        Gl().FramebufferTexture2D(target, attachment, GL_TEXTURE_2D, planes->LumaTexture(), 0);
    }
}

}  // namespace
}  // namespace desk

DESK_GL_EXPORT void GL_APIENTRY glEGLImageTargetRenderbufferStorageOES(GLenum target, GLeglImageOES image) {
    desk::GlCall([&](desk::ContextState& context) { desk::SetRenderbufferImage(context, target, image); });
}

DESK_GL_EXPORT void GL_APIENTRY glFramebufferRenderbuffer(GLenum target, GLenum attachment,
                                                          GLenum renderbufferTarget, GLuint renderbuffer) {
    desk::GlCall([&](desk::ContextState& context) {
        desk::AttachRenderbuffer(context, target, attachment, renderbufferTarget, renderbuffer);
    });
}

DESK_GL_EXPORT void GL_APIENTRY glDeleteRenderbuffers(GLsizei count, const GLuint* renderbuffers) {
    desk::GlCall([&](desk::ContextState& context) {
        for (GLsizei i = 0; i < count; ++i) {
            context.DeleteRenderTarget(renderbuffers[i]);
        }
        desk::Gl().DeleteRenderbuffers(count, renderbuffers);
    });
}

DESK_GL_EXPORT void GL_APIENTRY glFinish() {
    desk::GlCall([](desk::ContextState& context) {
        context.FinishRenderTargets();
        desk::Gl().Finish();
    });
}
