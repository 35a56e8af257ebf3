#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "desk/abi/gl_reports.h"
#include "desk/abi/gralloc_layout.h"
#include "desk/gl/egl/handle_table.h"
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
    Buffer(uint32_t columns, uint32_t lines) : memory(GrallocBuffer::Create({columns, lines}, {})) {
        width = static_cast<int>(columns);
        height = static_cast<int>(lines);
        format = GrallocFormatNv12;
        handle = memory->Handle();
        common.incRef = [](android_native_base_t* /*base*/) { ++references; };
        common.decRef = [](android_native_base_t* /*base*/) { --references; };
        told.geometry.stride = static_cast<int>(memory->Stride());
        told.geometry.scanline = static_cast<int>(memory->Scanline());
    }
    int& Int(GrallocHandleInt position) {
        return memory->Handle()->data[GrallocFdCount + position];
    }
    void Ask(EGLint name, EGLint value) {
        attributes = {name, value, EGL_NONE};
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
    std::array<EGLint, 3> attributes = {EGL_NONE};
};

constexpr float Corners[] = {0, 0, 2, 0, 0, 2};  // of a triangle round the target, which is 0 to 1
constexpr const char* Place =
    "#version 300 es\nin highp vec2 corner; out highp vec2 at;\n"
    "void main() { at = corner; gl_Position = vec4(corner * 2.0 - 1.0, 0.0, 1.0); }\n";
constexpr const char* Copy =
    "#version 300 es\n#extension GL_EXT_YUV_target : require\nuniform highp __samplerExternal2DY2YEXT tex;\n"
    "in highp vec2 at; layout(yuv) out highp vec4 yuv;\nvoid main() { yuv = texture(tex, at); }\n";
constexpr const char* Grey = "#version 300 es\nout highp vec4 rgb;\nvoid main() { rgb = vec4(0.5); }\n";

class Gl : public ::testing::Test {
protected:
    void SetUp() override {
        GL(eglInitialize)(display_, nullptr, nullptr);
        const EGLint wanted[] = {EGL_SURFACE_TYPE, EGL_PBUFFER_BIT, EGL_NONE};
        const EGLint version[] = {EGL_CONTEXT_CLIENT_VERSION, 2, EGL_NONE};
        EGLConfig config = nullptr;
        EGLint count = 0;
        GL(eglChooseConfig)(display_, wanted, &config, 1, &count);
        context_ = GL(eglCreateContext)(display_, config, EGL_NO_CONTEXT, version);
        GL(eglMakeCurrent)(display_, EGL_NO_SURFACE, EGL_NO_SURFACE, context_);
    }
    void TearDown() override {
        GL(eglMakeCurrent)(display_, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
        GL(eglDestroyContext)(display_, context_);
        GL(eglTerminate)(display_);
        const DeskGlCounters left = Counters();
        EXPECT_EQ(left.liveImages + left.liveContexts + left.initialisedDisplays + left.contextCurrent, 0U);
        EXPECT_EQ(references, 0);
    }
    /// Makes the buffer the texture 7, which unit 1 samples, or the renderbuffer 5, which is drawn to.
    void Sample(Buffer& buffer) {
        const EGLImageKHR image = buffer.Import();
        GL(glActiveTexture)(GL_TEXTURE1);
        GL(glBindTexture)(GL_TEXTURE_EXTERNAL_OES, 7);
        GL(glEGLImageTargetTexture2DOES)(GL_TEXTURE_EXTERNAL_OES, image);
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
    static void Use(const char* fragment) {
        const GLuint program = GL(glCreateProgram)();
        for (const char* text : {Place, fragment}) {
            const GLuint shader = GL(glCreateShader)(text == Place ? GL_VERTEX_SHADER : GL_FRAGMENT_SHADER);
            GL(glShaderSource)(shader, 1, &text, nullptr);
            GL(glCompileShader)(shader);
            GL(glAttachShader)(program, shader);
        }
        GL(glBindAttribLocation)(program, 3, "corner");
        GL(glEnableVertexAttribArray)(3);
        GL(glVertexAttribPointer)(3, 2, GL_FLOAT, GL_FALSE, 0, Corners);
        GL(glLinkProgram)(program);
        GL(glUseProgram)(program);
        GL(glUniform1i)(GL(glGetUniformLocation)(program, "tex"), 1);
    }
    static void Draw(const char* fragment) {
        Use(fragment);
        GL(glDrawArrays)(GL_TRIANGLES, 0, 3);
        GL(glFinish)();
    }

    EGLDisplay display_ = GL(eglGetDisplay)(EGL_DEFAULT_DISPLAY);
    EGLContext context_ = EGL_NO_CONTEXT;
};

TEST_F(Gl, ImportsBuffersOfTheDeskAlone) {
    constexpr EGLint Wrong = EGL_BAD_PARAMETER;
    const std::pair<EGLint, void (*)(Buffer&)> rows[] = {
        {EGL_SUCCESS, [](Buffer& b) { b.Ask(EGL_IMAGE_PRESERVED_KHR, EGL_TRUE); }},
        {EGL_BAD_MATCH, [](Buffer& b) { b.Ask(EGL_WIDTH, 64); }},
        {EGL_BAD_MATCH, [](Buffer& b) { b.Ask(EGL_HEIGHT, 48); }},
        {EGL_BAD_ATTRIBUTE, [](Buffer& b) { b.Ask(EGL_GL_TEXTURE_LEVEL_KHR, 0); }},
        {EGL_BAD_CONTEXT, [](Buffer& b) { b.context = &b; }},
        {EGL_BAD_DISPLAY, [](Buffer& b) { b.display = EGL_NO_DISPLAY; }},
        {EGL_NOT_INITIALIZED, [](Buffer& b) { b.display = &b; }},
        {EGL_BAD_MATCH, [](Buffer& b) { b.width--; }},
        {EGL_BAD_MATCH, [](Buffer& b) { b.height--; }},
        {Wrong, [](Buffer& b) { b.width = b.Int(GrallocIntWidth) = 0; }},
        {Wrong, [](Buffer& b) { b.target = EGL_GL_TEXTURE_2D_KHR; }},
        {Wrong, [](Buffer& b) { b.client = nullptr; }},
        {Wrong, [](Buffer& b) { b.common.magic++; }},
        {Wrong, [](Buffer& b) { b.common.version++; }},
        {Wrong, [](Buffer& b) { b.common.incRef = nullptr; }},
        {Wrong, [](Buffer& b) { b.common.decRef = nullptr; }},
        {Wrong, [](Buffer& b) { b.handle = nullptr; }},
        {Wrong, [](Buffer& b) { b.format++; }},
        {Wrong, [](Buffer& b) { b.Int(GrallocIntFormat)++; }},
        {Wrong, [](Buffer& b) { b.Int(GrallocIntSize)++; }},  // more than the file has
        {Wrong, [](Buffer& b) { b.Int(GrallocIntSize)--; }},  // a byte less than both planes have
        {Wrong, [](Buffer& b) { b.told.magic++; }},
        {Wrong, [](Buffer& b) { b.told.hasGeometry = 0; }},
        {Wrong, [](Buffer& b) { b.told.hasColor = 0; }},
        {Wrong, [](Buffer& b) { b.told.geometry.stride = 64; }},
        {Wrong, [](Buffer& b) { b.told.geometry.stride = 65; }},
        {Wrong, [](Buffer& b) { b.told.geometry.scanline = 48; }},
    };
    const uint64_t imports = Counters().imports;
    for (const auto& [code, harm] : rows) {
        SCOPED_TRACE(&code - &rows[0].first);
        Buffer buffer(65, 49);
        harm(buffer);
        const unsigned whether = code == EGL_SUCCESS ? 1 : 0;
        const EGLImageKHR image = buffer.Import();
        EXPECT_EQ(GL(eglGetError)(), code);
        EXPECT_EQ(GL(eglGetError)(), EGL_SUCCESS);
        EXPECT_EQ(Counters().liveImages, whether);
        EXPECT_EQ(GL(eglDestroyImageKHR)(display_, image), whether);
        EXPECT_EQ(references, 0);
    }
    EXPECT_EQ(Counters().imports, imports + 1);
}

TEST_F(Gl, EndsADisplayWithItsLastUser) {
    Buffer buffer(64, 48);
    buffer.Import();
    GL(eglInitialize)(display_, nullptr, nullptr);
    GL(eglTerminate)(display_);
    EXPECT_EQ(references, 1);
    const DeskGlCounters counters = Counters();
    EXPECT_EQ(counters.initialisedDisplays + counters.liveContexts + counters.contextCurrent, 3U);
    EXPECT_STREQ(counters.renderer, reinterpret_cast<const char*>(GL(glGetString)(GL_RENDERER)));
    GLint largest = 0;
    GL(glGetIntegerv)(GL_MAX_TEXTURE_SIZE, &largest);
    EXPECT_EQ(counters.maxTextureSize, largest);
    GL(eglTerminate)(display_);
    EXPECT_EQ(references, 0);
    EXPECT_EQ(Counters().liveContexts, 1U) << "it is still current";
    GL(eglReleaseThread)();
    EXPECT_EQ(Counters().liveContexts, 0U);
}

TEST(HandleTable, KeepsDisplaysApart) {
    HandleTable<int> table;
    int ends[2] = {};
    for (int& display : ends) {
        table.Add(&display, &table, std::make_shared<int>(7));
    }
    EXPECT_EQ(table.Remove(&table, &table), nullptr);
    EXPECT_EQ(table.TakeAll(&ends[0]).size(), 1U);
    EXPECT_EQ(table.Find(&ends[0], &table), nullptr);
    EXPECT_EQ(*table.Find(&ends[1], &table), 7);
}

TEST_F(Gl, RefusesWhatImagesAreNotFor) {
    Buffer buffer(64, 48);
    Buffer target(64, 48);
    const EGLImageKHR image = buffer.Import();
    const auto parameter = [](GLenum name, GLint value) {
        return [=] { GL(glTexParameteri)(GL_TEXTURE_EXTERNAL_OES, name, value); };
    };
    const auto texture = [](GLenum kind, EGLImageKHR handle) {
        return [=] { GL(glEGLImageTargetTexture2DOES)(kind, handle); };
    };
    const auto renderbuffer = [](GLenum kind, EGLImageKHR handle) {
        return [=] { GL(glEGLImageTargetRenderbufferStorageOES)(kind, handle); };
    };
    const std::pair<GLenum, std::function<void()>> rows[] = {
        {GL_INVALID_OPERATION, texture(GL_TEXTURE_EXTERNAL_OES, image)},  // none is bound
        {GL_INVALID_OPERATION, renderbuffer(GL_RENDERBUFFER, image)},     // nor here
        {GL_NO_ERROR, [&] { Sample(buffer); }},
        {GL_INVALID_OPERATION, texture(GL_TEXTURE_2D, image)},
        {GL_INVALID_ENUM, texture(GL_TEXTURE_3D, image)},
        {GL_INVALID_VALUE, texture(GL_TEXTURE_EXTERNAL_OES, &buffer)},
        {GL_NO_ERROR, parameter(GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE)},
        {GL_INVALID_ENUM, parameter(GL_TEXTURE_WRAP_S, GL_REPEAT)},
        {GL_INVALID_ENUM, parameter(GL_TEXTURE_MIN_FILTER, GL_LINEAR_MIPMAP_LINEAR)},
        {GL_INVALID_ENUM, parameter(GL_TEXTURE_BASE_LEVEL, GL_NEAREST)},
        {GL_INVALID_OPERATION, [] { Draw(Copy); }},
        {GL_NO_ERROR, [&] { DrawTo(target); }},
        {GL_INVALID_OPERATION, [] { Draw(Grey); }},
        {GL_INVALID_ENUM, renderbuffer(GL_TEXTURE_2D, image)},
        {GL_INVALID_VALUE, renderbuffer(GL_RENDERBUFFER, nullptr)},
        {GL_INVALID_OPERATION, [] { Attach(GL_DEPTH_ATTACHMENT); }},
        {GL_INVALID_ENUM, [] { (GL(glBindTexture))(GL_RGBA, 0); }},  // the driver's own
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(&row - rows);
        row.second();
        EXPECT_EQ(GL(glGetError)(), row.first);
    }
    rows[3].second();
    rows[4].second();
    EXPECT_EQ(GL(glGetError)(), rows[3].first) << "the first one stays";
    EXPECT_EQ(GL(glGetError)(), GLenum{GL_NO_ERROR}) << "until it is taken";

    EXPECT_EQ(references, 3) << "of the image, the texture and the renderbuffer";
    const GLuint names[] = {7, 5};
    GL(glDeleteTextures)(1, names);
    GL(glDeleteRenderbuffers)(1, names + 1);
    EXPECT_EQ(references, 1);
    GL(glActiveTexture)(GL_TEXTURE2);
    GL(glBindTexture)(GL_TEXTURE_EXTERNAL_OES, 7);
    GL(glActiveTexture)(GL_TEXTURE1);
    rows[0].second();
    EXPECT_EQ(GL(glGetError)(), rows[0].first) << "the name's next texture is bound on another unit";
    EXPECT_EQ(GL(eglDestroyImageKHR)(display_, image), EGLBoolean{EGL_TRUE}) << "before its buffer goes";
}

TEST_F(Gl, DrawsAllSamplesOfAnOddImageAndNoOthers) {
    const auto state = [] {
        std::vector<GLint> all;
        for (const int name :
             {GL_ACTIVE_TEXTURE, GL_TEXTURE_BINDING_2D, GL_VIEWPORT, GL_SCISSOR_BOX, GL_CURRENT_PROGRAM,
              GL_DRAW_FRAMEBUFFER_BINDING, GL_READ_FRAMEBUFFER_BINDING, GL_COLOR_CLEAR_VALUE}) {
            GLint values[4] = {};
            GL(glGetIntegerv)(static_cast<GLenum>(name), values);
            all.insert(all.end(), values, values + 4);
        }
        return all;
    };
    using Samples = std::array<double, 3>;
    const Scene copied = [](double x, double y) { return Samples{250 - 2 * x, 250 - 3 * y, 120 + x - y}; };
    const Scene cleared = [](double /*x*/, double /*y*/) { return Samples{51, 102, 153}; };
    Buffer input(65, 49);
    Buffer output(65, 49);
    Paint(*input.memory, copied);
    Sample(input);
    DrawTo(output);
    Use(Copy);
    GL(glActiveTexture)(GL_TEXTURE3);
    GL(glClearColor)(0.2F, 0.4F, 0.6F, 1.0F);
    for (const int edge : {0, 11}) {
        GL(glScissor)(edge, edge, 65 - 2 * edge, 49 - 2 * edge);
        edge == 0 ? GL(glDisable)(GL_SCISSOR_TEST) : GL(glEnable)(GL_SCISSOR_TEST);
        for (const Scene* inside : {&copied, &cleared}) {
            const double old = inside == &copied ? 3 : 9;
            const Scene before = [=](double x, double y) { return Samples{x + old, y + old, x + y + old}; };
            const Scene expected = [&](double x, double y) {  // chroma's samples on the edge are drawn whole
                const bool isIn = std::min(x, y) > edge - 1 && x < 65 - edge && y < 49 - edge;
                return isIn ? (*inside)(x, y) : before(x, y);
            };
            Paint(*output.memory, before);
            const std::vector<GLint> found = state();
            inside == &cleared ? GL(glClear)(GL_COLOR_BUFFER_BIT) : GL(glDrawArrays)(GL_TRIANGLES, 0, 3);
            GL(glFinish)();
            EXPECT_EQ(Compare(*output.memory, expected, 0.6), "");
            EXPECT_EQ(state(), found);
        }
    }
}

TEST_F(Gl, KeepsAFilterFromOneImageToTheNext) {
    Buffer input(4, 4);
    Buffer output(64, 64);
    Paint(*input.memory, [](double x, double) { return std::array{x < 2 ? 40.0 : 200.0, 128.0, 128.0}; });
    for (const int filter : {GL_NEAREST, GL_LINEAR}) {
        Sample(input);
        GL(glTexParameteri)(GL_TEXTURE_EXTERNAL_OES, GL_TEXTURE_MAG_FILTER, filter);
        Sample(input);
        DrawTo(output);
        Draw(Copy);
        EXPECT_EQ(output.memory->Luma()[30], filter == GL_NEAREST ? 40 : 105);
    }
}

}  // namespace
