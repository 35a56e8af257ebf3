#include <dlfcn.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <list>

#include "desk/abi/gl_reports.h"
#include "desk/abi/gralloc_layout.h"
#include "desk/gl/driver/real_gl.h"
#include "platform/nativewindowbuffer.h"
#include "tests/node/pixels/picture.h"

namespace {

using namespace desk;

/// A function as a node finds it: by its name in the desk's libraries.
#define GL(name) reinterpret_cast<decltype(&::name)>(dlsym(Library(), #name))
void* Library() {
    static void* const library = dlopen(TEST_GL_LIBRARY, RTLD_NOW);
    return library;
}

DeskGlCounters Counters() {
    DeskGlCounters counters = {};
    GL(desk_gl_counters)(&counters);
    return counters;
}

int references = 0;  // on all buffers

/// A buffer of the desk, and how it is imported.
struct Buffer : ANativeWindowBuffer {
    Buffer(uint32_t columns, uint32_t lines, Alignment alignment = {})
        : memory(GrallocBuffer::Create({columns, lines}, alignment)) {
        width = static_cast<int>(columns);
        height = static_cast<int>(lines);
        format = GrallocFormatNv12;
        handle = memory->Handle();
        common.incRef = [](android_native_base_t* /*base*/) { ++references; };
        common.decRef = [](android_native_base_t* /*base*/) { --references; };
        told.geometry = {static_cast<int>(memory->Stride()), static_cast<int>(memory->Scanline())};
    }
    /// What it says of itself: any other number is wrong.
    std::vector<int*> Numbers() {
        int* ints = &memory->Handle()->data[GrallocFdCount];
        auto* flags = reinterpret_cast<int*>(&told);  // magic, geometry's, stride, scanline, colour's
        return {ints,      ints + 1,  ints + 2, ints + 3, ints + 4, flags,         flags + 1,      flags + 2,
                flags + 3, flags + 4, &width,   &height,  &format,  &common.magic, &common.version};
    }
    EGLImageKHR Import() {
        EXPECT_GT(pwrite(memory->Handle()->data[GrallocMetadataFd], &told, sizeof(told), 0), 0);
        return GL(eglCreateImageKHR)(display, context, target, client, attributes.data());
    }

    std::shared_ptr<GrallocBuffer> memory;
    GrallocMetadata told = {GrallocMetadataMagic, 1, {}, 1, {}};
    EGLDisplay display = GL(eglGetDisplay)(EGL_DEFAULT_DISPLAY);
    EGLContext context = EGL_NO_CONTEXT;
    EGLenum target = EGL_NATIVE_BUFFER_ANDROID;
    EGLClientBuffer client = this;
    std::vector<EGLint> attributes = {EGL_NONE};
};

constexpr float Corners[] = {0, 0, 2, 0, 0, 2};  // of a triangle round the target, which is 0 to 1
constexpr const char* Place =
    "#version 300 es\nin highp vec2 corner; out highp vec2 at;\n"
    "void main() { at = corner; gl_Position = vec4(corner * 2.0 - 1.0, 0.0, 1.0); }\n";
constexpr const char* Copy =
    " \n#version 300 es\n# extension  GL_EXT_YUV_target:enable\n"
    "uniform highp  __samplerExternal2DY2YEXT tex;in highp vec2 at;layout (yuv) out mediump vec4 yuv;\n"
    "void main( void )\n{ yuv = texture ( tex , vec2(at)); }";
constexpr const char* Grey = "#version 300 es\nout highp vec4 rgb;\nvoid main() { rgb = vec4(0.5); }\n";
constexpr GLenum External = GL_TEXTURE_EXTERNAL_OES;

/// The call leaves this behind.
#define EXPECT_GL(error, call) \
    call;                      \
    EXPECT_EQ(GL(glGetError)(), GLenum{error}) << #call

class Gl : public ::testing::Test {
protected:
    void SetUp() override {
        GL(eglInitialize)(display_, nullptr, nullptr);
        const EGLint wanted[] = {EGL_SURFACE_TYPE, EGL_PBUFFER_BIT, EGL_NONE};
        EGLint count = 0;
        GL(eglChooseConfig)(display_, wanted, &config_, 1, &count);
        context_ = CreateContext(EGL_CONTEXT_CLIENT_VERSION, 2);
        GL(eglMakeCurrent)(display_, EGL_NO_SURFACE, EGL_NO_SURFACE, context_);
        const auto hear = [](void* owner, const char* text) {
            static_cast<std::vector<std::string>*>(owner)->push_back(text);
        };
        GL(desk_gl_set_error_sink)(hear, &heard_);
        EXPECT_GL(GL_INVALID_ENUM, GL(glBindTexture)(GL_RGBA, 0));
    }
    void TearDown() override {
        GL(eglMakeCurrent)(display_, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
        GL(eglDestroyContext)(display_, context_);
        GL(eglTerminate)(display_);
        GL(desk_gl_set_error_sink)(nullptr, nullptr);
        EXPECT_THAT(heard_, ::testing::ElementsAre(::testing::Not(::testing::EndsWith("\n"))))
            << "SetUp's alone";
        const DeskGlCounters left = Counters();
        EXPECT_EQ(left.liveImages + left.liveContexts + left.initialisedDisplays + left.contextCurrent, 0U);
        EXPECT_EQ(references, 0);
    }
    EGLContext CreateContext(EGLint name, EGLint value) {
        const EGLint attributes[] = {name, value, EGL_NONE};
        return GL(eglCreateContext)(display_, config_, EGL_NO_CONTEXT, attributes);
    }
    /// Makes the buffer the texture 7, which unit 1 samples, or the renderbuffer 5, which is drawn to.
    void Sample(Buffer& buffer) {
        const EGLImageKHR image = buffer.Import();
        GL(glActiveTexture)(GL_TEXTURE1);
        GL(glBindTexture)(External, 7);
        GL(glEGLImageTargetTexture2DOES)(External, image);
        GL(eglDestroyImageKHR)(display_, image);
    }
    static void Attach(GLenum attachment) {
        GL(glFramebufferRenderbuffer)(GL_FRAMEBUFFER, attachment, GL_RENDERBUFFER, 5);
    }
    void DrawTo(Buffer& buffer) {
        const EGLImageKHR image = buffer.Import();
        GL(glBindRenderbuffer)(GL_RENDERBUFFER, 5);
        GL(glEGLImageTargetRenderbufferStorageOES)(GL_RENDERBUFFER, image);
        GL(glBindFramebuffer)(GL_FRAMEBUFFER, 6);
        Attach(GL_COLOR_ATTACHMENT0);
        GL(eglDestroyImageKHR)(display_, image);
        GL(glViewport)(0, 0, buffer.width, buffer.height);
    }
    static GLuint Shader(GLenum kind, const char* text) {
        const GLuint shader = GL(glCreateShader)(kind);
        const char* const parts[] = {text, text + 9};
        const GLint lengths[] = {9, -1};
        GL(glShaderSource)(shader, 2, parts, lengths);
        return shader;
    }
    static GLuint Use(const char* fragment) {
        const GLuint program = GL(glCreateProgram)();
        for (const GLuint shader : {Shader(GL_VERTEX_SHADER, Place), Shader(GL_FRAGMENT_SHADER, fragment)}) {
            GL(glCompileShader)(shader);
            GL(glAttachShader)(program, shader);
        }
        GL(glBindAttribLocation)(program, 3, "corner");
        GL(glEnableVertexAttribArray)(3);
        GL(glVertexAttribPointer)(3, 2, GL_FLOAT, GL_FALSE, 0, Corners);
        GL(glLinkProgram)(program);
        GL(glUseProgram)(program);
        GL(glUniform1i)(GL(glGetUniformLocation)(program, "tex"), 1);
        return program;
    }
    static void Draw() {
        GL(glDrawArrays)(GL_TRIANGLES, 0, 3);
        GL(glFinish)();
    }

    std::list<Buffer> buffers_;       ///< that images hold until the context ends
    std::vector<std::string> heard_;  ///< what the driver says of errors
    EGLDisplay display_ = GL(eglGetDisplay)(EGL_DEFAULT_DISPLAY);
    EGLConfig config_ = nullptr;
    EGLContext context_ = EGL_NO_CONTEXT;
};

TEST_F(Gl, ImportsBuffersOfTheDeskAlone) {
    std::vector<std::function<void(Buffer&)>> harms = {
        [](Buffer& b) {
            b.attributes = {EGL_WIDTH, 64, EGL_NONE};
        },
        [](Buffer& b) {
            b.attributes = {EGL_WIDTH, 65, EGL_HEIGHT, 48, EGL_NONE};
        },
        [](Buffer& b) {
            b.attributes = {EGL_GL_TEXTURE_LEVEL_KHR, 0, EGL_NONE};
        },
        [](Buffer& b) { b.context = &b; },
        [](Buffer& b) { b.display = EGL_NO_DISPLAY; },
        [](Buffer& b) { b.display = &b; },
        [](Buffer& b) { b.target = EGL_GL_TEXTURE_2D_KHR; },
        [](Buffer& b) { b.client = nullptr; },
        [](Buffer& b) { b.common.incRef = nullptr; },
        [](Buffer& b) { b.common.decRef = nullptr; },
        [](Buffer& b) { b.handle = nullptr; },
        [](Buffer& b) { b.width = *b.Numbers()[1] = 0; },
        [](Buffer& b) { b.height = *b.Numbers()[2] = 0; },
    };
    for (size_t i = 0; i < Buffer(65, 49).Numbers().size(); ++i) {
        harms.push_back([i](Buffer& b) { *b.Numbers()[i] -= 2; });
        harms.push_back([i](Buffer& b) { *b.Numbers()[i] += 1; });
    }
    std::ifstream refusals(TEST_REFUSALS);  // the code and the sentence of each, one a line
    for (const auto& harm : harms) {
        Buffer buffer(65, 49);
        harm(buffer);
        ::testing::internal::CaptureStderr();
        const EGLImageKHR image = buffer.Import();
        const std::string said = ::testing::internal::GetCapturedStderr();
        std::string expected;
        std::getline(refusals, expected);
        EXPECT_EQ(fmt::format("{:x} {}", GL(eglGetError)(), said), expected + "\n");
        EXPECT_EQ(GL(eglGetError)(), EGL_SUCCESS);
        EXPECT_EQ(image, nullptr);
        EXPECT_EQ(Counters().liveImages + static_cast<unsigned>(references), 0U);
    }
    EXPECT_EQ(refusals.peek(), EOF);

    const uint64_t imports = Counters().imports;
    Buffer buffer(65, 49, {128, 64});
    buffer.attributes = {EGL_IMAGE_PRESERVED_KHR, EGL_TRUE, EGL_HEIGHT, 49, EGL_NONE};
    const EGLImageKHR image = buffer.Import();
    EXPECT_EQ(Counters().liveImages, 1U);
    for (EGLImageKHR handle : {EGLImageKHR{&buffer}, image, image}) {
        const bool isAlive = handle == image && references == 1;
        EXPECT_EQ(GL(eglDestroyImageKHR)(display_, handle), EGLBoolean{isAlive});
        EXPECT_EQ(GL(eglGetError)(), isAlive ? EGL_SUCCESS : EGL_BAD_PARAMETER);
    }
    GL(eglDestroyImageKHR)(display_, image);
    GL(eglInitialize)(EGL_NO_DISPLAY, nullptr, nullptr);
    EXPECT_EQ(GL(eglGetError)(), EGL_BAD_DISPLAY) << "the latest call's";
    EXPECT_EQ(Counters().imports, imports + 1);
}

TEST_F(Gl, EndsADisplayWithItsLastUser) {
    Buffer buffer(64, 48);
    buffer.Import();
    GL(eglInitialize)(display_, nullptr, nullptr);
    GL(eglTerminate)(display_);
    EXPECT_EQ(references, 1);
    EGLint version = 0;
    GL(eglQueryContext)(display_, context_, EGL_CONTEXT_CLIENT_VERSION, &version);
    EXPECT_EQ(version, 3);
    EXPECT_EQ(CreateContext(EGL_TEXTURE_TARGET, 2), EGL_NO_CONTEXT) << "not an attribute of contexts";
    EXPECT_EQ(GL(eglMakeCurrent)(display_, nullptr, nullptr, &buffer), EGLBoolean{EGL_FALSE});
    const DeskGlCounters counters = Counters();
    EXPECT_EQ(counters.initialisedDisplays + counters.liveContexts + counters.contextCurrent, 3U);
    EXPECT_STREQ(counters.renderer, reinterpret_cast<const char*>(GL(glGetString)(GL_RENDERER)));
    GLint largest = 0;
    GL(glGetIntegerv)(GL_MAX_TEXTURE_SIZE, &largest);
    EXPECT_EQ(counters.maxTextureSize, largest);
    EXPECT_EQ(GL(eglDestroyContext)(display_, context_), EGLBoolean{EGL_TRUE});
    EXPECT_EQ(Counters().liveContexts, 1U) << "it is still current";
    GL(eglReleaseThread)();
    EXPECT_EQ(Counters().liveContexts, 0U);
    CreateContext(EGL_CONTEXT_CLIENT_VERSION, 3);
    GL(eglTerminate)(display_);
    EXPECT_EQ(references, 0);
    EXPECT_EQ(Counters().initialisedDisplays + Counters().liveContexts, 0U);
    GL(glClear)(GL_COLOR_BUFFER_BIT);
    EXPECT_EQ(GL(glGetError)(), GLenum{GL_NO_ERROR}) << "without a context";
}

TEST_F(Gl, KeepsDisplaysApart) {
    const auto query =
        reinterpret_cast<decltype(&::eglQueryDevicesEXT)>(GL(eglGetProcAddress)("eglQueryDevicesEXT"));
    EGLDeviceEXT device = nullptr;
    EGLint count = 0;
    if (query == nullptr || query(1, &device, &count) == EGL_FALSE || count == 0) {
        GTEST_SKIP() << "the machine's EGL has no second display";
    }
    const EGLDisplay other = GL(eglGetPlatformDisplay)(EGL_PLATFORM_DEVICE_EXT, device, nullptr);
    ASSERT_EQ(GL(eglInitialize)(other, nullptr, nullptr), EGLBoolean{EGL_TRUE});
    Buffer buffer(64, 48);
    const EGLImageKHR image = buffer.Import();
    EXPECT_EQ(GL(eglDestroyImageKHR)(other, image), EGLBoolean{EGL_FALSE});
    GL(eglTerminate)(other);
    EXPECT_EQ(references, 1);
    EXPECT_EQ(GL(eglDestroyImageKHR)(display_, image), EGLBoolean{EGL_TRUE});
    EXPECT_EQ(Counters().initialisedDisplays + Counters().liveContexts, 2U);
}

TEST_F(Gl, RefusesWhatImagesAreNotFor) {
    Buffer buffer(64, 48);
    Buffer target(64, 48);
    const EGLImageKHR image = buffer.Import();
    const auto setTexture = GL(glEGLImageTargetTexture2DOES);
    const auto setRenderbuffer = GL(glEGLImageTargetRenderbufferStorageOES);
    const auto parameter = GL(glTexParameteri);
    EXPECT_GL(GL_INVALID_OPERATION, setTexture(External, image)) << "none is bound";
    EXPECT_GL(GL_INVALID_OPERATION, setRenderbuffer(GL_RENDERBUFFER, image)) << "nor here";
    EXPECT_GL(GL_NO_ERROR, Sample(buffer));
    EXPECT_GL(GL_INVALID_OPERATION, setTexture(GL_TEXTURE_2D, image));
    EXPECT_GL(GL_INVALID_ENUM, setTexture(GL_TEXTURE_3D, image));
    EXPECT_GL(GL_INVALID_VALUE, setTexture(External, &buffer));
    EXPECT_GL(GL_NO_ERROR, parameter(External, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE));
    EXPECT_GL(GL_INVALID_ENUM, parameter(External, GL_TEXTURE_WRAP_S, GL_REPEAT));
    EXPECT_GL(GL_INVALID_ENUM, parameter(External, GL_TEXTURE_MIN_FILTER, GL_LINEAR_MIPMAP_LINEAR));
    EXPECT_GL(GL_INVALID_ENUM, parameter(External, GL_TEXTURE_BASE_LEVEL, GL_NEAREST));
    const GLuint copy = Use(Copy);
    EXPECT_GL(GL_INVALID_OPERATION, Draw()) << "YUV on an ordinary target";
    EXPECT_GL(GL_NO_ERROR, DrawTo(target));
    EXPECT_GL(GL_NO_ERROR, Draw());
    EXPECT_GL(GL_INVALID_OPERATION, GL(glDeleteProgram)(copy); Draw()) << "in use or not, it is gone";
    EXPECT_GL(GL_INVALID_OPERATION, Use(Grey); Draw());
    EXPECT_GL(GL_INVALID_ENUM, setRenderbuffer(GL_TEXTURE_2D, image));
    EXPECT_GL(GL_INVALID_VALUE, setRenderbuffer(GL_RENDERBUFFER, nullptr));
    EXPECT_GL(GL_INVALID_OPERATION, Attach(GL_DEPTH_ATTACHMENT));
    setTexture(GL_TEXTURE_2D, image);
    EXPECT_GL(GL_INVALID_OPERATION, setTexture(GL_TEXTURE_3D, image)) << "the first one stays";
    EXPECT_GL(GL_NO_ERROR, ) << "until it is taken";
    EXPECT_EQ(references, 3) << "of the image, the texture and the renderbuffer";

    const GLuint names[] = {7, 5};
    GL(glDeleteTextures)(1, names);
    GL(glDeleteRenderbuffers)(1, names + 1);
    EXPECT_EQ(references, 1);
    GL(glActiveTexture)(GL_TEXTURE2);
    GL(glBindTexture)(External, 7);
    GL(glActiveTexture)(GL_TEXTURE1);
    EXPECT_GL(GL_INVALID_OPERATION, setTexture(External, image)) << "the name is bound on another unit";
    EXPECT_EQ(GL(eglDestroyImageKHR)(display_, image), EGLBoolean{EGL_TRUE}) << "before its buffer goes";

    GL(glBindRenderbuffer)(GL_RENDERBUFFER, 5);
    GL(glRenderbufferStorage)(GL_RENDERBUFFER, GL_RGBA8, 1, 1);
    Attach(GL_COLOR_ATTACHMENT0);
    EXPECT_GL(GL_NO_ERROR, Draw()) << "grey on an ordinary target";
    uint8_t pixel[4] = {};
    GL(glReadPixels)(0, 0, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, pixel);
    EXPECT_NEAR(pixel[1], 128, 1);
}

TEST_F(Gl, HandsTheDriverAPlainShader) {
    const std::string plain =
        "uniform __samplerExternal2DY2YEXT tex; layout(yuv) out vec4 yuv; void main() {}";
    const std::pair<std::string, std::string> rows[] = {
        {plain, plain},
        {"// line 1\n#version 300 es\n", "// line 1\n#version 300 es\n"},
        {" \t\n\n#version 300 es\n4\n", "#version 300 es\n \t\n\n4\n"},
        {"#version 300 es", "#version 300 es"},
        {"#extension GL_EXT_YUV_target : require\nuniform __samplerExternal2DY2YEXT a;\n"
         "uniform __samplerExternal2DY2YEXT tex;\ntexture(a1, 2)",
         "\nuniform sampler2D a; uniform sampler2D desk_chroma; highp vec4 desk_texture(highp vec2 at) { "
         "return vec4(texture(a, at).r, texture(desk_chroma, at).rg, 1.0); }\n"
         "\n#error expected one external sampler, got tex as well\n\ntexture(a1, 2)"},
    };
    for (const auto& [given, expected] : rows) {
        std::array<char, 400> held{};
        GL(glGetShaderSource)(Shader(GL_FRAGMENT_SHADER, given.c_str()), 400, nullptr, held.data());
        EXPECT_EQ(held.data(), expected);
    }
}

TEST_F(Gl, DrawsAllSamplesOfAnOddImageAndNoOthers) {
    const auto state = [] {
        std::vector<std::array<GLint, 4>> all;
        for (const int name :
             {GL_VIEWPORT, GL_SCISSOR_BOX, GL_COLOR_CLEAR_VALUE, GL_ACTIVE_TEXTURE, GL_TEXTURE_BINDING_2D,
              GL_CURRENT_PROGRAM, GL_DRAW_FRAMEBUFFER_BINDING, GL_READ_FRAMEBUFFER_BINDING, GL_PACK_ALIGNMENT,
              GL_PACK_ROW_LENGTH, GL_UNPACK_ALIGNMENT, GL_UNPACK_ROW_LENGTH}) {
            GL(glGetIntegerv)(static_cast<GLenum>(name), all.emplace_back().data());
        }
        return all;
    };
    using Samples = std::array<double, 3>;
    Buffer& input = buffers_.emplace_back(65U, 49U, Alignment{128, 64});
    Buffer& output = buffers_.emplace_back(65U, 49U, Alignment{32, 128});
    Sample(input);
    DrawTo(output);
    Use(Copy);
    GL(glActiveTexture)(GL_TEXTURE3);
    GL(glClearColor)(0.2F, 0.4F, 0.6F, 1.0F);
    for (const int edge : {0, 11}) {
        GL(glScissor)(edge, edge, 65 - 2 * edge, 49 - 2 * edge);
        edge == 0 ? GL(glDisable)(GL_SCISSOR_TEST) : GL(glEnable)(GL_SCISSOR_TEST);
        const Scene copied = [=](double x, double y) {
            return Samples{250 - 2 * x, 250 - 3 * y, 120 + x - y - edge};
        };
        const Scene cleared = [](double /*x*/, double /*y*/) { return Samples{51, 102, 153}; };
        Paint(*input.memory, copied);
        for (const int step : {0, 1, 2}) {
            const int old = edge + 7 * step;
            const Scene before = [old](double x, double y) { return Samples{x + old, y + old, x + y + old}; };
            const Scene& inside = step == 0 ? copied : step == 1 ? cleared : before;
            const Scene expected = [&](double x, double y) {  // chroma's samples on the edge are drawn whole
                const bool isIn = std::min(x, y) > edge - 1 && x < 65 - edge && y < 49 - edge;
                return isIn ? inside(x, y) : before(x, y);
            };
            Paint(*output.memory, before);
            const auto found = state();
            if (step == 0) {
                Draw();
            } else {
                GL(glClear)(step == 1 ? GL_COLOR_BUFFER_BIT : GL_DEPTH_BUFFER_BIT);
            }
            GL(glFinish)();
            EXPECT_EQ(Compare(*output.memory, expected, 0.6), "");
            EXPECT_EQ(state(), found);
        }
    }
}

TEST_F(Gl, KeepsAFilterFromOneImageToTheNext) {
    // The output's size, which samples of luma and chroma are compared, and of each the first and that one.
    const std::tuple<GLenum, GLint, uint32_t, uint32_t, uint32_t, std::array<float, 4>> rows[] = {
        {GL_TEXTURE_MAG_FILTER, GL_NEAREST, 64, 30, 15, {40, 120, 60, 60}},
        {GL_TEXTURE_MAG_FILTER, GL_LINEAR, 64, 30, 15, {40, 88, 60, 107}},
        {GL_TEXTURE_MIN_FILTER, GL_NEAREST, 3, 2, 0, {40, 120, 60, 60}},
        {GL_TEXTURE_MIN_FILTER, GL_LINEAR, 3, 2, 0, {67, 120, 60, 60}}};
    Buffer& input = buffers_.emplace_back(4U, 4U);
    Paint(*input.memory, [](double x, double y) {
        const int odd = static_cast<int>(x) % 2 + static_cast<int>(y) % 2;
        return std::array{odd * 80.0 + 40.0, x + y < 2 ? 60.0 : 160.0, 128.0};
    });
    std::string mixed = Copy;
    mixed.insert(mixed.find("; }"), ".xyxw");  // Cr shows luma
    for (const auto& [name, filter, size, inLuma, inChroma, expected] : rows) {
        Buffer& output = buffers_.emplace_back(size, size);
        Sample(input);
        GL(glTexParameteri)(External, name, filter);
        Sample(input);
        DrawTo(output);
        Use(mixed.c_str());
        Draw();
        const uint8_t* luma = output.memory->Luma();
        const uint8_t* chroma = output.memory->Chroma();
        const int levels[] = {luma[0], luma[inLuma], chroma[0], chroma[2 * inChroma]};
        EXPECT_THAT(levels, ::testing::Pointwise(::testing::FloatNear(2), expected));
        if (filter == GL_LINEAR) {
            EXPECT_NEAR(chroma[1], size == 64 ? 40 : 120, 2);
        }
    }
}

}  // namespace
