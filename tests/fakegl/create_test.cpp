#include "tests/fakegl/fake_gl_fixture.h"

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
        EXPECT_EQ(host_.Metadata().Get<uint32_t>(node->Session(), 0, desk::ExtraBuffersTag()).value_or(0),
                  4U);
    }
}

TEST_F(Create, TakesTheFirstConfigThatFitsExactly) {
    gl_->configs = {{8, 8, 8, 8, 16, 8, 0, 0}, {8, 8, 8, 8, 24, 8, 1, 4}, {8, 8, 8, 0, 24, 8, 0, 0},
                    {8, 8, 8, 8, 24, 0, 0, 0}, {8, 8, 8, 8, 24, 8, 0, 0}, {8, 8, 8, 8, 24, 8, 0, 0}};
    node_ = host_.CreateNode(desk::Variant::LookAhead);
    EXPECT_THAT(gl_->Take(), ::testing::Contains("eglCreateContext(0xd1, 0xcf04, 0x0, ptr)"));
}

namespace {

struct Failure {
    const char* name;
    std::function<void(FakeGl&, desk::DeskHost&)> inject;
    uint32_t result;
    std::vector<std::string> errors;
};

}  // namespace

// Whatever fails, creation says so in its own words, gives the right result and keeps nothing but what a
// failed bring-up is known to leave.
TEST_F(Create, FailsInItsOwnWords) {
    const std::string engine = "E Initialize() [DEWARP_2] OpenGL instance Initialize failed";
    const auto status = [](const char* what, unsigned nth) {
        return [=](FakeGl& gl, desk::DeskHost&) { gl.Answer(std::string(what) + ".status", 0, nth); };
    };
    const auto answer = [](const char* name, uint64_t result, unsigned nth = 0) {
        return [=](FakeGl& gl, desk::DeskHost&) { gl.Answer(name, result, nth); };
    };
    const std::vector<Failure> rows = {
        {"no config",
         [](FakeGl& gl, desk::DeskHost&) {
             gl.configs = {{8, 8, 8, 8, 16, 8, 0, 0}};
         },
         1,
         {"E CreateContext() [DEWARP_2] Unable to create EGL pContext", engine}},
        {"context",
         answer("eglCreateContext", 0),
         1,
         {"E CreateContext() [DEWARP_2] Unable to create EGL pContext", engine}},
        {"pbuffer",
         answer("eglCreatePbufferSurface", 0),
         1,
         {"E CreateContext() [DEWARP_2] Unable to create EGL pSurface", engine}},
        {"make current",
         [](FakeGl& gl, desk::DeskHost&) {
             gl.Answer("eglMakeCurrent", 0, 1);
             gl.RaiseAfter("eglMakeCurrent", 0x3002);
         },
         1,
         {"E Initialize() [DEWARP_2] eglMakeCurrent failed with error code: 3002", engine}},
        {"vertex shader",
         status("glGetShaderiv", 1),
         1,
         {"E CreateShader() [DEWARP_2] Shader compilation status: 0",
          "E CreateShader() [DEWARP_2] Shader compilation failure [broken]",
          "E LoadProgram() [DEWARP_2] CreateShader vertexShader failed", engine}},
        {"fragment shader",
         status("glGetShaderiv", 2),
         1,
         {"E CreateShader() [DEWARP_2] Shader compilation status: 0",
          "E CreateShader() [DEWARP_2] Shader compilation failure [broken]",
          "E LoadProgram() [DEWARP_2] CreateShader fragmentShader failed", engine}},
        {"link",
         status("glGetProgramiv", 1),
         1,
         {"E CreateProgram() [DEWARP_2] Shader link status 0",
          "E CreateProgram() [DEWARP_2] Shader link status error [broken]",
          "E LoadProgram() [DEWARP_2] CreateProgram program failed", engine}},
        {"release",
         [](FakeGl& gl, desk::DeskHost&) {
             gl.RaiseAfter("glUniform1i", 0);
             gl.Answer("eglGetError", 0x300d);
         },
         1,
         {"E CheckEglError() [DEWARP_2] after eglMakeCurrent() eglError (0x300d)", engine}},
        {"attribute binding",
         [](FakeGl& gl, desk::DeskHost&) { gl.RaiseAfter("glBindAttribLocation", 0x501); },
         0,
         {"E CheckglError() [DEWARP_2] after glBindAttribLocation() glError (0x501)"}},
    };
    expectFindings_ = true;  // a failed bring-up keeps its libraries mapped
    for (const Failure& row : rows) {
        gl_->infoLog = "broken";
        row.inject(*gl_, host_);
        TakeLog();
        uint32_t result = 0;
        try {
            host_.CreateNode(desk::Variant::RealTime);
        } catch (const desk::NodeError& error) {
            result = error.Result();
        }
        EXPECT_EQ(result, row.result) << row.name;
        EXPECT_THAT(TakeLog('E'), ElementsAreArray(row.errors)) << row.name;
        EXPECT_EQ(host_.Counters().liveAllocations, 0U) << row.name;
        gl_->Behave();
        gl_->configs = {{8, 8, 8, 8, 24, 8, 0, 0}};
    }
}

TEST_F(Create, StopsAtAnyFailingHostService) {
    const std::string grid = "org.tamo.camera2.ipeicaconfigs/ICAInGridTransform";
    const struct {
        const char* service;
        std::string subject;
        uint32_t failure;
        desk::Variant variant;
        uint32_t result;
        const char* error;
    } rows[] = {
        {"GetVendorTagBase", "org.tamo.camera.streamTypePresent/preview", 7, desk::Variant::RealTime, 7,
         "E Initialize() [DEWARP_2] Unable to get StreamTypePresent Vendor Tag Id 7"},
        {"GetVendorTagBase", "org.tamo.camera2.ipeicaconfigs/ICAInPerspectiveTransform", 7,
         desk::Variant::RealTime, 7,
         "E Initialize() [DEWARP_2] Unable to get ICA In Perspective Transform Vendor Tag Id EISV2"},
        {"GetVendorTagBase", grid, 9, desk::Variant::RealTime, 9,
         "E Initialize() [DEWARP_2] Unable to get ICA In Grid Transform Vendor Tag Id EISV2"},
        {"GetVendorTagBase", "org.tamo.camera2.ipeicaconfigs/ICAInPerspectiveTransformLookAhead", 7,
         desk::Variant::LookAhead, 7,
         "E Initialize() [DEWARP_3] Unable to get ICA In Perspective Transform Vendor Tag Id EISV3"},
        {"GetVendorTagBase", grid + "Lookahead", 7, desk::Variant::LookAhead, 7,
         "E Initialize() [DEWARP_3] Unable to get ICA In Grid Transform Vendor Tag Id EISV3"},
        {"GetVendorTagBase", "org.tamo.camera2.ipeicaconfigs/ExtraFrameworkBuffers", 7,
         desk::Variant::RealTime, 1,
         "E DewarpNodeCreate() Unable to get ExtraFrameworkBuffers Vendor Tag Id EISV3"},
    };
    for (const auto& row : rows) {
        FailService(row.service, row.subject, row.failure);
        TakeLog();
        try {
            host_.CreateNode(row.variant);
            ADD_FAILURE() << row.subject;
        } catch (const desk::NodeError& error) {
            EXPECT_EQ(error.Result(), row.result) << row.subject;
        }
        EXPECT_THAT(TakeLog('E'), ElementsAre(row.error));
        EXPECT_EQ(host_.Counters().liveAllocations, 0U) << row.subject;
        EXPECT_EQ(host_.Counters().mappedLibraries, 0U) << row.subject;
    }
}

TEST_F(Create, SurvivesEveryFailingAllocation) {
    const uint32_t expected[] = {8, 8, 1, 8};
    expectFindings_ = true;
    for (unsigned nth = 1; nth <= 4; ++nth) {
        // The node, the engine, the engine's list of configs, the lock.
        host_.SetFault([nth, seen = 0U](const desk::HostCall& call, uint32_t&) mutable {
            return (call.service == "posix_memalign" || call.service == "malloc") && ++seen == nth;
        });
        try {
            host_.CreateNode(desk::Variant::RealTime);
            ADD_FAILURE() << "allocation " << nth;
        } catch (const desk::NodeError& error) {
            EXPECT_EQ(error.Result(), expected[nth - 1]) << "allocation " << nth;
        }
        EXPECT_EQ(host_.Counters().liveAllocations, 0U) << "allocation " << nth;
    }
}

namespace {

#define GLES_NAME(member, symbol, isRequired, isReset) {#symbol, isRequired},
#define EGL_NAME(member, symbol) {#symbol, true},
const std::vector<std::pair<std::string, bool>> g_symbols = {DEWARP_GLES_ENTRIES(GLES_NAME)
                                                                 DEWARP_EGL_ENTRIES(EGL_NAME)};
#undef GLES_NAME
#undef EGL_NAME

}  // namespace

TEST_F(Create, NeedsEverySymbolButTwo) {
    ASSERT_EQ(g_symbols.size(), 64U);
    expectFindings_ = true;
    for (const auto& [symbol, isRequired] : g_symbols) {
        gl_->missingSymbols = {symbol};
        TakeLog();
        bool isCreated = true;
        try {
            host_.CreateNode(desk::Variant::RealTime);
        } catch (const desk::NodeError&) {
            isCreated = false;
        }
        EXPECT_NE(isCreated, isRequired) << symbol;
        const std::vector<std::string> log = TakeLog('E');
        EXPECT_EQ(log.empty(), !isRequired) << symbol;
        if (isRequired) {
            const bool isEgl = symbol.rfind("egl", 0) == 0;
            const bool isPrinted = log[0].find("[(nil)]") != std::string::npos;
            EXPECT_EQ(isPrinted, symbol != "glUseProgram") << symbol;
            EXPECT_NE(
                log[0].find(
                    isEgl ? "Library: /system/lib64/libEGL.solibEGL.so m_pfneglgetdisplay["
                          : "Library: /system/lib64/libGLESv2.solibGLESv2.so m_pfnglgetattriblocation["),
                std::string::npos);
        }
    }
}

TEST_F(Create, NamesTheLibraryThatCannotBeMapped) {
    expectFindings_ = true;
    for (const std::string name : {"libGLESv2", "libEGL"}) {
        gl_->missingLibraries = {"/system/lib64/" + name + ".so"};
        TakeLog();
        EXPECT_THROW(host_.CreateNode(desk::Variant::RealTime), desk::NodeError);
        const std::vector<std::string> log = TakeLog('E');
        const bool isEgl = name == "libEGL";
        ASSERT_EQ(log.size(), 3U);
        EXPECT_EQ(log[0],
                  isEgl ? "E LoadEGLLib() [DEWARP_2] Unable to load EGL library Path[/system/lib64/libEGL.so]"
                        : "E LoadGLESv2Lib() [DEWARP_2] Unable to load OpenGL library "
                          "Path[/system/lib64/libGLESv2.so]");
        EXPECT_NE(log[1].find("Error Initializing one or more function pointers in Library: /system/lib64/" +
                              name + ".so" + name + ".so"),
                  std::string::npos);
    }
}
