#include <algorithm>
#include <regex>

#include "node/dewarp/gpu/gpuentrypoints.h"
#include "tests/node/fakegl/established_fixture.h"

class Create : public EstablishedFixture {};

TEST_F(Create, BringsTheEngineUpInOrder) {
    node_ = host_.CreateNode(desk::Variant::RealTime);
    NoteCalls("creation");
    node_.reset();
    NoteCalls("destruction");
}

TEST_F(Create, SaysWhatItDidPerVariant) {
    for (const auto variant : Variants) {
        auto node = host_.CreateNode(variant);
        NoteLog(desk::NameOf(variant));
        Note("extra buffers: {}",
             host_.State().metadata.Get<uint32_t>(node->Session(), 0, desk::ExtraBuffersTag()).value_or(0));
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
    const std::regex null(R"( m_pfn(\w+)\[(\(nil\)|0x0)\])", std::regex::icase);
    expectFindings_ = true;  // a failed bring-up keeps its libraries mapped
    for (const std::string& symbol : symbols) {
        gl_->missingSymbols = {symbol};
        TakeLog();
        if (optional.count(symbol) != 0) {
            EXPECT_NO_THROW(host_.CreateNode(desk::Variant::RealTime)) << symbol;
            EXPECT_THAT(TakeLog('E'), ::testing::IsEmpty()) << symbol;
            continue;
        }
        EXPECT_THROW(host_.CreateNode(desk::Variant::RealTime), desk::NodeError) << symbol;
        const std::string line = TakeLog('E').at(0);
        std::string missing;
        for (std::sregex_iterator found(line.begin(), line.end(), null), end; found != end; ++found) {
            missing += found->str(1);
        }
        // glUseProgram is the one that is required and not printed.
        EXPECT_STRCASEEQ(missing.c_str(), symbol == "glUseProgram" ? "" : symbol.c_str()) << line;
    }
}
