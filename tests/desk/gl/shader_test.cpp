#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "desk/gl/yuv/shader_translate.h"

namespace {

using ::testing::HasSubstr;
using ::testing::Not;

TEST(Shader, IsTakenApartByPlane) {
    const std::string luma = desk::TranslateYuvShader(
        " \n#version 300 es\n#extension GL_EXT_YUV_target : require\n"
        "uniform highp  __samplerExternal2DY2YEXT tex;\nlayout (yuv) out mediump vec4 yuv;\n"
        "void main( void )\n{ yuv = texture( tex , at(texture(other, 0))); }\n");
    EXPECT_EQ(luma,
              " \n#version 300 es\n\n"
              "uniform highp  sampler2D tex; uniform highp  sampler2D desk_chroma; "
              "highp vec4 desk_texture(highp vec2 at) { "
              "return vec4(texture(tex, at).r, texture(desk_chroma, at).rg, 1.0); }\n"
              "mediump vec4 yuv; layout(location = 0) out mediump vec4 desk_plane;\n"
              "void desk_main()\n{ yuv = desk_texture( at(texture(other, 0))); }\n"
              "\nvoid main() { desk_main(); desk_plane = yuv.xxxw; }\n");
    EXPECT_TRUE(desk::WritesPlanes(luma));
    EXPECT_EQ(desk::ExternalSampler(luma), "tex");
    const std::string chroma = desk::ChromaVariant(luma);
    EXPECT_THAT(chroma, HasSubstr("desk_plane = yuv.yzzw;"));
    EXPECT_THAT(chroma, Not(HasSubstr("xxxw")));
}

TEST(Shader, WithoutTheExtensionIsLeftAlone) {
    const std::string plain =
        "uniform __samplerExternal2DY2YEXT tex; layout(yuv) out vec4 yuv; void main() {}";
    EXPECT_EQ(desk::TranslateYuvShader(plain), plain);
    EXPECT_FALSE(desk::WritesPlanes(plain));
    EXPECT_EQ(desk::ExternalSampler(plain), "");
}

TEST(Shader, WithTwoExternalSamplersDoesNotCompile) {
    const std::string sampler = "uniform __samplerExternal2DY2YEXT tex;\n";
    EXPECT_THAT(desk::TranslateYuvShader("#extension GL_EXT_YUV_target : require\n" + sampler + sampler),
                HasSubstr("\n#error expected one external sampler, got tex as well\n"));
}

TEST(Shader, HasItsVersionInTheFirstLine) {
    EXPECT_EQ(desk::LeadWithVersion(" \t\n\n#version 300 es\n4\n"), "#version 300 es\n \t\n\n4\n");
    for (const char* text : {"#version 300 es", "", " \n", "// 1\n#version 300 es\n"}) {
        EXPECT_EQ(desk::LeadWithVersion(text), text);
    }
}

}  // namespace
