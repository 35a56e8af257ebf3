#pragma once

#include <vector>

#include "desk/gl/yuv/image.h"

namespace desk {

/// Where one sampler of an external image is found. Locations are -1 where the plane is not read.
struct ExternalSampler {
    GLint unitLocation;          ///< in the luma program, whose value is the application's to choose
    GLint repeatedUnitLocation;  ///< in the chroma program, which has to be given the same unit
    GLuint chromaUnit;           ///< the unit of the chroma plane in both programs
};

/// What the layer adds to a program that was linked from a translated shader.
struct PlaneProgram {
    GLuint lumaProgram = 0;    ///< the application's own
    GLuint chromaProgram = 0;  ///< writes chroma where the application's writes luma; 0 when it writes no YUV
    std::vector<ExternalSampler> samplers;
};

}  // namespace desk
