#include "desk/gl/yuv/planes.h"

#include <utility>

#include "desk/gl/driver/gl_scope.h"

namespace desk {

PlaneTextures::PlaneTextures(std::shared_ptr<Image> image) : image_(std::move(image)) {
    Gl().GenTextures(PlaneCount, textures_.data());
    const TextureScope binding;
    for (const Plane plane : Planes) {
        BindTexture2D(textures_[plane]);
        Gl().TexStorage2D(GL_TEXTURE_2D, 1, PlaneFormats[plane].internalFormat, image_->Width(plane),
                          image_->Height(plane));
        Gl().TexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
        Gl().TexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    }
}

void PlaneTextures::Delete() {
    Gl().DeleteTextures(PlaneCount, textures_.data());
}

void PlaneTextures::Upload() const {
    const TextureScope binding;
    PixelTransferScope transfer(PixelTransferScope::Unpack);
    for (const Plane plane : Planes) {
        BindTexture2D(textures_[plane]);
        transfer.SetRowLength(image_->RowLength(plane));
        Gl().TexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, image_->Width(plane), image_->Height(plane),
                           PlaneFormats[plane].format, GL_UNSIGNED_BYTE, image_->Data(plane));
    }
    ++GlobalCounters().uploads;
}

void PlaneTextures::SetParameter(GLenum name, GLint value) const {
    const TextureScope binding;
    for (const Plane plane : Planes) {
        BindTexture2D(textures_[plane]);
        Gl().TexParameteri(GL_TEXTURE_2D, name, value);
    }
}

}  // namespace desk
