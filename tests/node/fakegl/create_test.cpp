#include "tests/node/fakegl/fake_gl_fixture.h"

#include "node/dewarp/gpu/gpuentrypoints.h"

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

class Create : public FakeGlFixture {};

TEST_F(Create, BringsTheEngineUpInOrder) {
    node_ = host_.CreateNode(desk::Variant::RealTime);
    EXPECT_THAT(
        gl_->Take(),
        ElementsAre(
            "eglGetDisplay(0x0)", "eglInitialize(0xd1, ptr, ptr)", "eglBindAPI(0x30a0)",
            "eglQueryString(0xd1, 0x3053)", "eglChooseConfig(0xd1, ptr, 0x0, 0, ptr)",
            "eglChooseConfig(0xd1, ptr, ptr, 1, ptr)", "eglGetConfigAttrib(0xd1, 0xcf00, 0x3024, ptr)",
            "eglGetConfigAttrib(0xd1, 0xcf00, 0x3023, ptr)", "eglGetConfigAttrib(0xd1, 0xcf00, 0x3022, ptr)",
            "eglGetConfigAttrib(0xd1, 0xcf00, 0x3021, ptr)", "eglGetConfigAttrib(0xd1, 0xcf00, 0x3025, ptr)",
            "eglGetConfigAttrib(0xd1, 0xcf00, 0x3026, ptr)", "eglGetConfigAttrib(0xd1, 0xcf00, 0x3032, ptr)",
            "eglGetConfigAttrib(0xd1, 0xcf00, 0x3031, ptr)", "eglCreateContext(0xd1, 0xcf00, 0x0, ptr)",
            "eglCreatePbufferSurface(0xd1, 0xcf00, ptr)", "eglMakeCurrent(0xd1, 0x5f, 0x5f, 0xc0)",
            "glCreateShader(0x8b31)", "glShaderSource(11, 1, ptr, 0x0)", "glCompileShader(11)",
            "glGetShaderiv(11, 0x8b81, ptr)", "glCreateShader(0x8b30)", "glShaderSource(12, 1, ptr, 0x0)",
            "glCompileShader(12)", "glGetShaderiv(12, 0x8b81, ptr)", "glCreateProgram()",
            "glAttachShader(21, 11)", "glAttachShader(21, 12)", "glGetError()", "glLinkProgram(21)",
            "glGetProgramiv(21, 0x8b82, ptr)", "glGetError()", "glDetachShader(21, 11)",
            "glDetachShader(21, 12)", "glDeleteShader(11)", "glDeleteShader(12)", "glFinish()",
            "glUseProgram(21)", "glGetAttribLocation(21, \"inPosition\")",
            "glGetAttribLocation(21, \"inTexCoord\")", "glBindAttribLocation(21, 4, \"inPosition\")",
            "glGetError()", "glBindAttribLocation(21, 5, \"inTexCoord\")", "glGetError()",
            "glGetUniformLocation(21, \"tex\")", "glActiveTexture(0x84c0)", "glUniform1i(3, 0)",
            "eglMakeCurrent(0xd1, 0x0, 0x0, 0x0)", "eglGetError()"));
    node_.reset();
    EXPECT_THAT(gl_->Take(),
                ElementsAre("eglMakeCurrent(0xd1, 0x5f, 0x5f, 0xc0)", "glDisableVertexAttribArray(4)",
                            "glDisableVertexAttribArray(5)", "glGetError()", "glUseProgram(0)",
                            "glDeleteProgram(21)", "glGetError()", "glDeleteBuffers(1, ptr)",
                            "eglDestroyContext(0xd1, 0xc0)", "eglDestroySurface(0xd1, 0x5f)",
                            "eglMakeCurrent(0xd1, 0x0, 0x0, 0x0)", "eglTerminate(0xd1)"));
}

TEST_F(Create, SaysWhatItDidPerVariant) {
    for (const auto variant : {desk::Variant::RealTime, desk::Variant::LookAhead}) {
        TakeLog();
        auto node = host_.CreateNode(variant);
        const bool isRealTime = variant == desk::Variant::RealTime;
        const std::string p = isRealTime ? "[DEWARP_2] " : "[DEWARP_3] ";
        const std::string eis = isRealTime ? "EISV2" : "EISV3";
        std::vector<std::string> expected = {
            "I CreateContext() " + p + "EGL Vendor: Fake EGL Version:1.5",
            "I CreateContext() " + p + "EglDisplay 0xd1, EglSurface 0x5f, EglContext 0xc0",
            "I Initialize() " + p + "posId 4 texId 5",
            "I Initialize() " + p + "ICA In Perspective Transform Vendor Tag Id " + eis,
            "I Initialize() " + p + "ICA In Grid Transform Vendor Tag Id EISV2",
            "I DewarpNodeCreate() Publishing ExtraFrameworkBuffers 4"};
        if (isRealTime) {
            expected.insert(expected.begin() + 3, "I Initialize() " + p + "StreamTypePresent");
        }
        EXPECT_THAT(TakeLog(), ElementsAreArray(expected));
        EXPECT_EQ(
            host_.State().metadata.Get<uint32_t>(node->Session(), 0, desk::ExtraBuffersTag()).value_or(0),
            4U);
    }
}

TEST_F(Create, TakesTheFirstConfigThatFitsExactly) {
    gl_->configs = {{8, 8, 8, 8, 16, 8, 0, 0}, {8, 8, 8, 8, 24, 8, 1, 4}, {8, 8, 8, 0, 24, 8, 0, 0},
                    {8, 8, 8, 8, 24, 0, 0, 0}, {8, 8, 8, 8, 24, 8, 0, 0}, {8, 8, 8, 8, 24, 8, 0, 0}};
    node_ = host_.CreateNode(desk::Variant::LookAhead);
    EXPECT_THAT(gl_->Take(), ::testing::Contains("eglCreateContext(0xd1, 0xcf04, 0x0, ptr)"));
}

// A creation that fails for it prints what it has: a null is the one missing.
TEST_F(Create, NamesTheEntryPointThatIsMissing) {
#define SYMBOL(member, symbol, ...) #symbol,
    const std::vector<std::string> symbols = {DEWARP_GLES_ENTRIES(SYMBOL) DEWARP_EGL_ENTRIES(SYMBOL)};
#undef SYMBOL
    const std::set<std::string> optional = {"glFlush", "glEGLImageTargetRenderbufferStorageOES"};
    expectFindings_ = true;  // a failed bring-up keeps its libraries mapped
    const std::string none = "[" + NullText() + "]";
    for (const std::string& symbol : symbols) {
        gl_->missingSymbols = {symbol};
        TakeLog();
        if (optional.count(symbol) != 0) {
            host_.CreateNode(desk::Variant::RealTime);
            continue;
        }
        EXPECT_THROW(host_.CreateNode(desk::Variant::RealTime), desk::NodeError);
        const std::string line = TakeLog('E').at(0);
        const size_t null = line.find(none);
        if (symbol == "glUseProgram") {  // the one that is required and not printed
            EXPECT_EQ(null, std::string::npos) << line;
            continue;
        }
        ASSERT_NE(null, std::string::npos) << symbol;
        const std::string member = line.substr(line.rfind(' ', null) + 1, null - line.rfind(' ', null) - 1);
        EXPECT_STRCASEEQ(member.c_str(), ("m_pfn" + symbol).c_str());
        EXPECT_EQ(line.find(none, null + 1), std::string::npos) << line;
    }
}
