#include "desk/gl/yuv/external_texture.h"

#include <utility>

#include "desk/gl/driver/export.h"
#include "desk/gl/yuv/context_state.h"

namespace desk {

void ExternalTexture::SetImage(std::shared_ptr<Image> image) {
    Delete();
    const PlaneTextures& planes = imported_.emplace(std::move(image)).planes;
    planes.SetParameter(GL_TEXTURE_MIN_FILTER, minFilter_);
    planes.SetParameter(GL_TEXTURE_MAG_FILTER, magFilter_);
}

void ExternalTexture::SetFilter(GLenum name, GLint value) {
    (name == GL_TEXTURE_MIN_FILTER ? minFilter_ : magFilter_) = value;
    if (imported_) {
        imported_->planes.SetParameter(name, value);
    }
}

void ExternalTexture::Delete() {
    if (imported_) {
        imported_->planes.Delete();
        imported_.reset();
    }
}

void ExternalTexture::Upload() const {
    if (imported_) {
        imported_->planes.Upload();
    }
}

GLuint ExternalTexture::PlaneName(Plane plane) const {
    return imported_ ? imported_->planes.Name(plane) : 0;
}

namespace {

GLuint ActiveUnit() {
    return static_cast<GLuint>(GlInteger(GL_ACTIVE_TEXTURE)) - GL_TEXTURE0;
}

/// External textures have one level and end at their edges, so only these values are left.
bool IsExternalParameter(GLenum name, GLint value) {
    switch (name) {
        case GL_TEXTURE_MIN_FILTER:
        case GL_TEXTURE_MAG_FILTER:
            return value == GL_NEAREST || value == GL_LINEAR;
        case GL_TEXTURE_WRAP_S:
        case GL_TEXTURE_WRAP_T:
            return value == GL_CLAMP_TO_EDGE;
        default:
            return false;
    }
}

void SetExternalParameter(ContextState& context, GLenum name, GLint value) {
    ExternalTexture* texture = context.BoundExternalTexture(ActiveUnit());
    if (!IsExternalParameter(name, value)) {
        context.SetError(GL_INVALID_ENUM);
    } else if (texture != nullptr && (name == GL_TEXTURE_MIN_FILTER || name == GL_TEXTURE_MAG_FILTER)) {
        texture->SetFilter(name, value);
    }
}

void SetTextureImage(ContextState& context, GLenum target, GLeglImageOES handle) {
    auto image = context.ImageFor(target, handle, Gl().EGLImageTargetTexture2DOES);
    if (!image) {
        return;
    }
    ExternalTexture* texture = context.BoundExternalTexture(ActiveUnit());
    if (target != GL_TEXTURE_EXTERNAL_OES || texture == nullptr) {
        context.SetError(target == GL_TEXTURE_EXTERNAL_OES || target == GL_TEXTURE_2D ? GL_INVALID_OPERATION
                                                                                      : GL_INVALID_ENUM);
        return;
    }
    texture->SetImage(std::move(image));
}

}  // namespace
}  // namespace desk

DESK_GL_EXPORT void GL_APIENTRY glBindTexture(GLenum target, GLuint texture) {
    desk::GlCall([&](desk::ContextState& context) {
        if (target == GL_TEXTURE_EXTERNAL_OES) {
            context.BindExternalTexture(desk::ActiveUnit(), texture);
        } else {
            desk::Gl().BindTexture(target, texture);
        }
    });
}

DESK_GL_EXPORT void GL_APIENTRY glTexParameteri(GLenum target, GLenum name, GLint value) {
    desk::GlCall([&](desk::ContextState& context) {
        if (target == GL_TEXTURE_EXTERNAL_OES) {
            desk::SetExternalParameter(context, name, value);
        } else {
            desk::Gl().TexParameteri(target, name, value);
        }
    });
}

DESK_GL_EXPORT void GL_APIENTRY glDeleteTextures(GLsizei count, const GLuint* textures) {
    desk::GlCall([&](desk::ContextState& context) {
        for (GLsizei i = 0; i < count; ++i) {
            context.DeleteExternalTexture(textures[i]);
        }
        desk::Gl().DeleteTextures(count, textures);
    });
}

DESK_GL_EXPORT void GL_APIENTRY glEGLImageTargetTexture2DOES(GLenum target, GLeglImageOES image) {
    desk::GlCall([&](desk::ContextState& context) { desk::SetTextureImage(context, target, image); });
}
