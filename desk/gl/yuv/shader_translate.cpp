#include "desk/gl/yuv/shader_translate.h"

#include <algorithm>
#include <mutex>
#include <regex>

namespace desk {
namespace {

const char* const ExtensionLine = R"(#[ \t]*extension[ \t]+GL_EXT_YUV_target[ \t]*:[^\n]*)";

/// Groups: precision, name.
const char* const SamplerDeclaration =
    R"(\buniform\s+((?:(?:highp|mediump|lowp)\s+)?)__samplerExternal2DY2YEXT\s+(\w+)\s*;)";

/// Groups: precision, name.
const char* const YuvOutput =
    R"(\blayout\s*\(\s*yuv\s*\)\s*out\s+((?:(?:highp|mediump|lowp)\s+)?)vec4\s+(\w+)\s*;)";

/// A call becomes one of a function that stands beside the declaration, so that its coordinates may be any
/// expression.
void TranslateSampler(TranslatedShader& shader) {
    std::smatch sampler;
    if (!std::regex_search(shader.text, sampler, std::regex(SamplerDeclaration))) {
        return;
    }
    shader.sampler = sampler.str(2);
    const std::string call = R"(\btexture\s*\(\s*)" + shader.sampler + R"(\s*,)";
    shader.text = std::regex_replace(shader.text, std::regex(call), "desk_texture(");
    shader.text = std::regex_replace(shader.text, std::regex(SamplerDeclaration),
                                     "uniform $1sampler2D $2; uniform $1sampler2D desk_chroma; "
                                     "highp vec4 desk_texture(highp vec2 at) { "
                                     "return vec4(texture($2, at).r, texture(desk_chroma, at).rg, 1.0); }",
                                     std::regex_constants::format_first_only);
    shader.text = std::regex_replace(shader.text, std::regex(SamplerDeclaration),
                                     "\n#error expected one external sampler, got $2 as well\n");
}

/// The YUV output becomes a variable, of which a main function around the shader's own writes one plane.
void TranslateOutput(TranslatedShader& shader) {
    std::smatch output;
    if (!std::regex_search(shader.text, output, std::regex(YuvOutput))) {
        return;
    }
    const std::string end = "\nvoid main() { desk_main(); desk_plane = " + output.str(2);
    const std::string declared = std::regex_replace(shader.text, std::regex(YuvOutput),
                                                    "$1vec4 $2; layout(location = 0) out $1vec4 desk_plane;");
    const std::string both = std::regex_replace(
        declared, std::regex(R"(\bvoid\s+main\s*\(\s*(?:void)?\s*\))"), "void desk_main()");
    shader.text = both + end + ".xxxw; }\n";
    shader.chroma = both + end + ".yzzw; }\n";
}

std::string LeadWithVersion(const std::string& source) {
    const size_t version = source.find_first_not_of(" \t\r\n");
    if (version == std::string::npos || source.compare(version, 8, "#version") != 0) {
        return source;
    }
    const size_t next = std::min(source.find('\n', version), source.size() - 1) + 1;
    return source.substr(version, next - version) + source.substr(0, version) + source.substr(next);
}

}  // namespace

TranslatedShader TranslateYuvShader(const std::string& source) {
    // Regular expressions fill a cache of the process's locale as they go, and do not lock it.
    static std::mutex mutex;
    const std::lock_guard<std::mutex> lock(mutex);
    TranslatedShader shader;
    shader.text = LeadWithVersion(source);
    const std::string plain = std::regex_replace(shader.text, std::regex(ExtensionLine), "");
    if (plain != shader.text) {
        shader.text = plain;
        TranslateSampler(shader);
        TranslateOutput(shader);
    }
    return shader;
}

}  // namespace desk
