#include <cstdarg>
#include <cstdio>
#include <regex>

#include "tests/node/fakegl/established_fixture.h"

namespace {

std::vector<std::string> g_lines;  // of both sinks, in order
bool g_isWatched = false;

}  // namespace

// The platform's log, as the library reaches it in this process.
extern "C" __attribute__((format(printf, 3, 4))) int __android_log_print(int priority, const char* tag,
                                                                         const char* format, ...) {
    if (g_isWatched) {
        char text[512];
        va_list arguments;
        va_start(arguments, format);
        static_cast<void>(std::vsnprintf(text, sizeof(text), format, arguments));
        va_end(arguments);
        g_lines.push_back(fmt::format("{}/{}: {}", priority, tag, text));
    }
    return 0;
}

class Logs : public EstablishedFixture {
protected:
    void Watch(uint32_t levels, bool isSystemOn) {
        host_.SetLogLevels(levels, isSystemOn);
        host_.log.SetObserver([](const desk::LogRecord& record) {
            g_lines.push_back(fmt::format("{} {} {} {} ({})", record.levelWord, record.levelLetter,
                                          record.file, record.format, record.text));
        });
        g_lines.clear();
        g_isWatched = true;
    }
    /// Both sinks' lines, with N for the lines of code.
    void NoteSinks(std::string_view title) {
        for (std::string& line : g_lines) {
            line = std::regex_replace(line, std::regex("cpp:[0-9]+"), "cpp:N");
            line = std::regex_replace(line, std::regex("\n$"), "\\n");
        }
        NoteLines(title, g_lines);
    }
    ~Logs() override {
        g_isWatched = false;
    }
};

TEST_F(Logs, GoToTheSystemFirstAndThenToTheHost) {
    Watch(1, true);
    host_.gate->GetCaps(nullptr);
    NoteSinks("a refusal");
}

TEST_F(Logs, FollowTheirSwitches) {
    gl_->fault = [](const GlCall& call) {
        return GlFault{call.name == "glDrawElements" ? 0x502U : 0U, false};
    };
    grid_.gridTransformEnable = 0;
    for (const uint32_t levels : {0U, 1U, 2U, 8U, 32U}) {
        for (const bool isSystemOn : {true, false}) {
            MakeNode();
            Watch(levels, isSystemOn);
            EXPECT_EQ(Frame(1), 0U);
            std::set<std::string> heads;
            for (const std::string& line : g_lines) {
                heads.insert(line.substr(0, line.find(']') + 1));
            }
            NoteLines(fmt::format("levels {}, {}", levels, isSystemOn ? "both sinks" : "the host"),
                      {heads.begin(), heads.end()});
        }
    }
}

// Both sinks' lines are made from what is read anew for each: the first read takes the error. Switched off,
// arguments are left alone.
TEST_F(Logs, EvaluateArgumentsOncePerSink) {
    expectFindings_ = true;
    gl_->fault = [](const GlCall& call) {
        return call.name == "eglMakeCurrent" ? GlFault{0x3002, true} : GlFault{};
    };
    for (const uint32_t levels : {1U, 0U}) {
        Watch(levels, true);
        EXPECT_THROW(host_.CreateNode(desk::Variant::RealTime), desk::NodeError);
        NoteSinks(fmt::format("levels {}", levels));
        const std::vector<std::string> calls = gl_->Take();
        Note("reads of the error: {}", std::count(calls.begin(), calls.end(), "eglGetError()"));
    }
}
