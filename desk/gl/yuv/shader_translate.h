#pragma once

#include <string>

/// GL_EXT_YUV_target in terms of plain GLSL ES 3.00. A shader that samples an external image reads its planes
/// from two samplers; one that writes YUV exists twice, once for each plane of the output, and the compiler
/// drops from each copy the sampling that its plane does not need. All functions work on the text alone.
namespace desk {

/// The text with luma as its output, or unchanged when it does not enable the extension. Line numbers stay. A
/// text with more than one external sampler does not compile, and the compiler says why.
std::string TranslateYuvShader(const std::string& source);

/// The text with its #version directive in front of the blanks and line ends that it may begin with: a strict
/// driver takes the directive in the very first line only. The lines after it keep their numbers.
std::string LeadWithVersion(const std::string& source);

/// True when the text is TranslateYuvShader's and writes YUV.
bool WritesPlanes(const std::string& translated);

/// A translated text that WritesPlanes(), with chroma as its output.
std::string ChromaVariant(const std::string& translated);

/// Name of the sampler of an external image in a translated text, which reads the luma plane; empty when
/// there is none.
std::string ExternalSampler(const std::string& translated);

/// Name of the sampler that reads the chroma plane of the same image.
constexpr const char* ChromaSampler = "desk_chroma";

}  // namespace desk
