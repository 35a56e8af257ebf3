#pragma once

#include <string>

/// GL_EXT_YUV_target in terms of plain GLSL ES 3.00. A shader that samples an external image reads its planes
/// from two samplers; one that writes YUV exists twice, once for each plane of the output, and the compiler
/// drops from each copy the sampling that its plane does not need.
namespace desk {

struct TranslatedShader {
    std::string text;     ///< with luma as its output when it writes YUV
    std::string chroma;   ///< the same with chroma as its output; empty when it writes no YUV
    std::string sampler;  ///< the external image's, which reads the luma plane; empty when there is none
};

/// The text stays as it is when it does not enable the extension, but for its #version directive, which a
/// strict driver takes in the very first line only: it comes in front of the blanks and line ends that the
/// text may begin with. Line numbers stay. A text with more than one external sampler does not compile, and
/// the compiler says why.
TranslatedShader TranslateYuvShader(const std::string& source);

/// Name of the sampler that reads the chroma plane of the same image.
constexpr const char* ChromaSampler = "desk_chroma";

}  // namespace desk
