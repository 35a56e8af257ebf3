#include <fmt/format.h>

#include "tests/node/fakegl/fake_gl_fixture.h"

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

class FrameCalls : public FakeGlFixture {
protected:
    using Calls = std::vector<std::string>;

    static Calls Join(std::initializer_list<Calls> parts) {
        Calls all;
        for (const Calls& part : parts) {
            all.insert(all.end(), part.begin(), part.end());
        }
        return all;
    }

    const Calls head_ = {"eglMakeCurrent(0xd1, 0x5f, 0x5f, 0xc0)",
                         "eglGetError()",
                         "glUseProgram(21)",
                         "glGetError()",
                         "glGetUniformLocation(21, \"tex\")",
                         "glActiveTexture(0x84c0)",
                         "glUniform1i(3, 0)",
                         "glViewport(0, 0, 64, 48)"};
    const Calls indices_ = {"glGenBuffers(1, ptr)", "glBindBuffer(0x8893, 100)", "glGetError()",
                            "glBufferData(0x8893, 0x2400, ptr, 0x88e4)", "glGetError()"};
    const Calls arrays_ = {"glEnableVertexAttribArray(4)",
                           "glEnableVertexAttribArray(5)",
                           "glVertexAttribPointer(4, 2, 0x1406, 0, 0, ptr)",
                           "glGetError()",
                           "glVertexAttribPointer(5, 2, 0x1406, 0, 0, ptr)",
                           "glGetError()",
                           "glBindBuffer(0x8893, 100)",
                           "glGetError()"};

    static Calls Import(int texture) {
        return {"eglGetCurrentDisplay()",
                "eglCreateImageKHR(0xd1, 0x0, 0x3140, ptr, ptr)",
                "glGenTextures(1, ptr)",
                "glGetError()",
                "glBindTexture(0x8d65, " + std::to_string(texture) + ")",
                "glGetError()",
                "glEGLImageTargetTexture2DOES(0x8d65, " + Image(texture) + ")",
                "eglGetError()",
                "glGetError()",
                "glTexParameteri(0x8d65, 0x2800, 0x2601)",
                "glTexParameteri(0x8d65, 0x2801, 0x2601)",
                "glGetError()"};
    }
    static std::string Image(int texture) {
        // The n-th import takes one name for a texture or two for a framebuffer, and always one image.
        return (texture == 101) ? "0x1a00" : "0x1a02";
    }
    const Calls target_ = {"eglGetCurrentDisplay()",
                           "eglCreateImageKHR(0xd1, 0x0, 0x3140, ptr, ptr)",
                           "glGenFramebuffers(1, ptr)",
                           "glGetError()",
                           "glBindFramebuffer(0x8d40, 102)",
                           "glGetError()",
                           "glGenRenderbuffers(1, ptr)",
                           "glGetError()",
                           "glBindRenderbuffer(0x8d41, 103)",
                           "glGetError()",
                           "glEGLImageTargetRenderbufferStorageOES(0x8d41, 0x1a01)",
                           "glGetError()",
                           "eglGetError()",
                           "glFramebufferRenderbuffer(0x8d40, 0x8ce0, 0x8d41, 103)",
                           "glGetError()",
                           "glBindFramebuffer(0x8d40, 0)",
                           "glGetError()",
                           "glBindRenderbuffer(0x8d41, 0)",
                           "glGetError()"};

    static Calls Draw(int texture) {
        return {"glBindTexture(0x8d65, " + std::to_string(texture) + ")",
                "glGetError()",
                "glBindFramebuffer(0x8ca9, 102)",
                "glGetError()",
                "glScissor(0, 0, 64, 48)",
                "glGetError()",
                "glCheckFramebufferStatus(0x8ca9)",
                "glClearColor(0, 0, 0, 0)",
                "glGetError()",
                "glClear(0x4100)",
                "glGetError()",
                "glDrawElements(4, 0x1200, 0x1403, 0x0)",
                "glGetError()"};
    }
    const Calls tail_ = {"glFlush()",
                         "glFinish()",
                         "glBindTexture(0x8d65, 0)",
                         "glGetError()",
                         "glBindFramebuffer(0x8ca9, 0)",
                         "glGetError()",
                         "eglMakeCurrent(0xd1, 0x0, 0x0, 0x0)",
                         "eglGetError()"};
};

TEST_F(FrameCalls, AreTheEstablishedSequence) {
    MakeNode();
    EXPECT_EQ(Frame(1), 0U);
    EXPECT_THAT(gl_->Take(),
                ElementsAreArray(Join({head_, indices_, arrays_, Import(101), target_, Draw(101), tail_})));
    EXPECT_EQ(Frame(2), 0U);
    EXPECT_THAT(gl_->Take(), ElementsAreArray(Join({head_, arrays_, Draw(101), tail_})))
        << "both buffers are cached";
    input_->Remap();
    EXPECT_EQ(Frame(3), 0U);
    const Calls stale = {"glDeleteTextures(1, ptr)", "eglGetCurrentDisplay()",
                         "eglDestroyImageKHR(0xd1, 0x1a00)", "eglGetError()"};
    EXPECT_THAT(gl_->Take(), ElementsAreArray(Join({head_, arrays_, stale, Import(104), Draw(104), tail_})));
    EXPECT_EQ(gl_->liveImages, 2U);
    node_.reset();
    EXPECT_EQ(gl_->liveImages, 0U);
    EXPECT_EQ(gl_->liveNames, 0U);
}

TEST_F(FrameCalls, AreLoggedInTheEstablishedWords) {
    MakeNode();
    const LumImageList in = input_->ImageList();
    const LumImageList out = output_->ImageList();
    EXPECT_EQ(Frame(7), 0U);
    const auto imported = [](const char* place, const LumImage& image, const char* handle, const char* name) {
        return fmt::format("I {} fd({}) pAddr({}) {}({}) {}", place, image.fd, image.pAddr, handle,
                           static_cast<void*>(image.pNativeHandle), name);
    };
    const std::string source =
        imported("GetSourceTexture() [DEWARP_2] Req 7 width[80] height[60] stride[128] scanline[64]",
                 in.firstImage, "native handle", "tex(101)");
    const std::string target =
        imported("GetOutputFrameBuffer() [DEWARP_2] Req 7 width[64] height[48] stride[128] scanline[64]",
                 out.firstImage, "native", "fbo(102) hEGLImage(0x1a01)");
    EXPECT_THAT(
        TakeLog(),
        ElementsAre(
            "I ProcessRequest() [DEWARP_2] Req 7 Seq 0", "I ProcessRequest() [DEWARP_2] Req 7 Seq 1",
            "I ConvertLumFormat() [DEWARP_2] Convert Lum format: 3 -> 265",
            "I ConvertLumFormat() [DEWARP_2] Convert Lum format: 3 -> 265",
            "I DewarpImage() [DEWARP_2] Input buffer format 265 Output buffer format 265",
            "V DewarpImage() [DEWARP_2] EglDisplay 0xd1, EglSurface 0x5f, EglContext 0xc0",
            "V DewarpImage() [DEWARP_2] index 0 33 1 33 1 34",
            "V DewarpImage() [DEWARP_2] m_nNumVerticesX 33 m_nNumVerticesY 25 tex 80x60 out 64x48",
            "V UpdateVertexAndTextureCoordinates() [DEWARP_2] parameters: numVerticesX[33] numVerticesY[25] "
            "inImageWidth[80] inImageHeight[60] outImageWidth[64] outImageHeight[48]",
            source, target, "V DewarpImage() [DEWARP_2] sourceTexture 101 frameBuffer 102",
            "V DewarpImage() [DEWARP_2] : X ret"));
    EXPECT_EQ(Frame(8), 0U);
    const std::vector<std::string> cached = TakeLog('V');
    const std::string fd = std::to_string(in.firstImage.fd);
    EXPECT_THAT(cached, Contains("V GetSourceTexture() [DEWARP_2] m_RequestId 8 Inserted fd " + fd +
                                 " hColorTexture 101"));
    EXPECT_THAT(cached, Contains("V GetOutputFrameBuffer() [DEWARP_2] RequestId 8 Inserted fd " +
                                 std::to_string(out.firstImage.fd) + " fbo 102 mapInfo.hEGLImage 0x1a01"));
    node_.reset();
    EXPECT_THAT(TakeLog(), ElementsAre("V FlushBufferMaps() [DEWARP_2] Flushing element for idx 0 ",
                                       "V FlushBufferMaps() [DEWARP_2] Flushing element for idx " +
                                           std::to_string(out.firstImage.fd) + " ",
                                       "V FlushBufferMaps() [DEWARP_2] Flushing of BufferMap Done"));
}

TEST_F(FrameCalls, ConvertFormatsOnceAndForAll) {
    MakeNode();
    const struct {
        uint32_t format;
        const char* converted;
        bool isKnown;
    } rows[] = {{3, "265", true}, {4, "275", true}, {13, "2141391878", true}, {5, "265", false}};
    for (const auto& row : rows) {
        auto node = host_.CreateNode(desk::Variant::RealTime);
        node->Negotiate({64, 48}, {0, 0});
        LumImageList list = input_->ImageList();
        LumImageList* lists[] = {&list};
        LumDependencyInfo dependency = {};
        dependency.processSequenceId = 1;
        LumNodeProcessRequestInfo info = {};
        info.size = sizeof(info);
        info.hNodeSession = node->Handle();
        info.requestId = 1;
        info.pDependency = &dependency;
        info.inputCount = info.outputCount = 1;
        info.inputImageLists = info.outputImageLists = lists;
        host_.State().metadata.Set(node->Session(), 1, desk::GridTag(desk::Variant::RealTime), grid_);
        list.format = static_cast<LumFormat>(row.format);
        TakeLog();
        EXPECT_EQ(host_.Callbacks().ProcRequest(&info), 0U);
        const std::string text = std::to_string(row.format);
        const std::vector<std::string> log = TakeLog();
        EXPECT_THAT(log, Contains("I ConvertLumFormat() [DEWARP_2] Convert Lum format: " + text + " -> " +
                                  row.converted));
        EXPECT_EQ(std::count(log.begin(), log.end(),
                             "E ConvertLumFormat() [DEWARP_2] Unsupported Lum Format for OpenGL: " + text +
                                 ", falling back to NV12"),
                  row.isKnown ? 0 : 2);
        list.format = static_cast<LumFormat>(99);
        dependency.processingDone = 0;
        EXPECT_EQ(host_.Callbacks().ProcRequest(&info), 0U);
        EXPECT_THAT(TakeLog('I'), ::testing::Each(::testing::Not(::testing::HasSubstr("Convert"))))
            << row.format;
    }
}

TEST_F(FrameCalls, AllocateNothingInSteadyState) {
    MakeNode();
    ASSERT_EQ(Frame(1), 0U);
    const uint64_t before = host_.Counters().totalAllocations;
    for (uint64_t request = 2; request < 20; ++request) {
        ASSERT_EQ(Frame(request), 0U);
    }
    EXPECT_EQ(host_.Counters().totalAllocations, before);
}
