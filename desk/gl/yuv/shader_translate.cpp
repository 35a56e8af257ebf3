#include "desk/gl/yuv/shader_translate.h"

#include <algorithm>
#include <mutex>
#include <regex>

namespace desk {
namespace {

/// Regular expressions fill a cache of the process's locale as they go, and do not lock it.
std::unique_lock<std::mutex> LockLocale() {
    static std::mutex mutex;
    return std::unique_lock<std::mutex>(mutex);
}

const char* const ExtensionLine = R"(#[ \t]*extension[ \t]+GL_EXT_YUV_target[ \t]*:[^\n]*)";

/// Groups: precision, name.
const char* const SamplerDeclaration =
    R"(\buniform\s+((?:(?:highp|mediump|lowp)\s+)?)__samplerExternal2DY2YEXT\s+(\w+)\s*;)";

/// Groups: precision, name.
const char* const YuvOutput =
    R"(\blayout\s*\(\s*yuv\s*\)\s*out\s+((?:(?:highp|mediump|lowp)\s+)?)vec4\s+(\w+)\s*;)";

/// What a text that writes luma ends with, after the YUV value's name.
const std::string LumaEnd = ".xxxw; }\n";

/// A call becomes one of a function that stands beside the declaration, so that its coordinates may be any
/// expression.
std::string TranslateSampler(const std::string& text) {
    std::smatch sampler;
    if (!std::regex_search(text, sampler, std::regex(SamplerDeclaration))) {
        return text;
    }
    const std::string call = R"(\btexture\s*\(\s*)" + sampler.str(2) + R"(\s*,)";
    std::string translated = std::regex_replace(text, std::regex(call), "desk_texture(");
    translated = std::regex_replace(translated, std::regex(SamplerDeclaration),
                                    "uniform $1sampler2D $2; uniform $1sampler2D desk_chroma; "
                                    "highp vec4 desk_texture(highp vec2 at) { "
                                    "return vec4(texture($2, at).r, texture(desk_chroma, at).rg, 1.0); }",
                                    std::regex_constants::format_first_only);
    return std::regex_replace(translated, std::regex(SamplerDeclaration),
                              "\n#error expected one external sampler, got $2 as well\n");
}

/// The YUV output becomes a variable, of which a main function around the shader's own writes one plane.
std::string TranslateOutput(const std::string& text) {
    std::smatch output;
    if (!std::regex_search(text, output, std::regex(YuvOutput))) {
        return text;
    }
    const std::string name = output[2];
    std::string translated = std::regex_replace(text, std::regex(YuvOutput),
                                                "$1vec4 $2; layout(location = 0) out $1vec4 desk_plane;");
    translated = std::regex_replace(translated, std::regex(R"(\bvoid\s+main\s*\(\s*(?:void)?\s*\))"),
                                    "void desk_main()");
    return translated + "\nvoid main() { desk_main(); desk_plane = " + name + LumaEnd;
}

}  // namespace

std::string TranslateYuvShader(const std::string& source) {
    const auto lock = LockLocale();
    if (!std::regex_search(source, std::regex(ExtensionLine))) {
        return source;
    }
    return TranslateOutput(TranslateSampler(std::regex_replace(source, std::regex(ExtensionLine), "")));
}

std::string LeadWithVersion(const std::string& source) {
    const size_t version = source.find_first_not_of(" \t\r\n");
    if (version == std::string::npos || source.compare(version, 8, "#version") != 0) {
        return source;
    }
    const size_t next = std::min(source.find('\n', version), source.size() - 1) + 1;
    return source.substr(version, next - version) + source.substr(0, version) + source.substr(next);
}

bool WritesPlanes(const std::string& translated) {
    return translated.find("void desk_main()") != std::string::npos;
}

std::string ChromaVariant(const std::string& translated) {
    return translated.substr(0, translated.size() - LumaEnd.size()) + ".yzzw; }\n";
}

std::string ExternalSampler(const std::string& translated) {
    const auto lock = LockLocale();
    std::smatch sampler;
    std::regex_search(translated, sampler, std::regex(R"(sampler2D (\w+); uniform [^;]*\bdesk_chroma;)"));
    return sampler.str(1);
}

}  // namespace desk
