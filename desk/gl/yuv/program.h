#pragma once

#include <unordered_map>

#include "desk/gl/driver/real_gl.h"
#include "desk/gl/yuv/shader_translate.h"

namespace desk {

/// What the layer adds to a program that samples an external image or writes YUV.
struct PlaneProgram {
    GLuint luma = 0;    ///< the application's own
    GLuint chroma = 0;  ///< writes chroma where the application's writes luma; 0 when it writes no YUV
    bool samplesImage = false;   ///< one image; what follows is of that sampler
    GLint lumaSampler = -1;      ///< location in the luma program; -1 where the plane is not read
    GLint chromaSampler = -1;    ///< location in the chroma program
    GLuint chromaPlaneUnit = 0;  ///< the unit that both programs read the image's chroma plane from

    /// The unit that the application gave to the sampler; 0, its initial value, when only chroma is read.
    GLuint Unit() const;
};

/// Those of one context, which has to be current.
class PlanePrograms {
public:
    /// Gives a shader its text, translated.
    void SetSource(GLuint shader, GLsizei count, const GLchar* const* strings, const GLint* lengths);
    void Link(GLuint program);
    /// In use or not, it draws no more.
    void Delete(GLuint program);
    /// The program in use; null when it needs nothing of the layer.
    const PlaneProgram* InUse() const;

private:
    void Forget(GLuint program);

    std::unordered_map<GLuint, TranslatedShader> shaders_;
    std::unordered_map<GLuint, PlaneProgram> programs_;  ///< by the application's program
};

}  // namespace desk
