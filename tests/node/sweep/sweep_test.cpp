#include <fmt/format.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <set>
#include <sstream>

#include "desk/host/desk_node.h"
#include "node/dewarp/gpu/gpuapi.h"
#include "tests/node/sweep/prediction.h"
#include "tests/support/node_fixture.h"

// Every call around the library that can fail is made to fail, each once and from there on, in a process of
// its own: a node is created, negotiates, renders four frames and is destroyed beside a neighbour that has to
// notice nothing. What has to come of it is told by Prediction.

// The platform's log, as the library reaches it in this process.
extern "C" int __android_log_print(int, const char*, const char*, ...) {
    return 0;
}

namespace {

using Counts = std::map<std::string, unsigned>;

struct Point {
    desk::Variant variant = desk::Variant::RealTime;
    std::string failing;  ///< the class of calls; empty for none
    unsigned first = 0;   ///< the first of them that fails, from 1
    bool isLasting = false;

    /// Where lines go varies from point to point: to the host alone, to both sinks; of lasting faults also
    /// nowhere.
    bool IsLogged() const {
        return !isLasting || first % 3 != 1;
    }
    bool HasSystemLog() const {
        return isLasting ? first % 3 == 2 : first % 2 == 1;
    }
    /// What the driver says of a shader or program that fails: something or nothing.
    const char* InfoLog() const {
        return isLasting ? "" : "broken";
    }
};

std::string Name(const Point& point) {
    return fmt::format("{} node, {} number {}{}", desk::NameOf(point.variant), point.failing, point.first,
                       point.isLasting ? " and later" : "");
}

/// The classes that a GL call belongs to.
std::vector<std::string> ClassesOf(const GlCall& call) {
    const std::string api = call.name.rfind("egl", 0) == 0 ? "EGL" : "GL";
    if (call.name == "glGetError" || call.name == "eglGetError") {
        return {api + " flag set when read"};
    }
    std::vector<std::string> classes = {api + " call raising its flag"};
    static const std::set<std::string> refusable = {"glCheckFramebufferStatus", "glCreateProgram",
                                                    "glCreateShader", "glGetProgramiv", "glGetShaderiv"};
    if (api == "EGL" || call.name.rfind("glGen", 0) == 0 || refusable.count(call.name) != 0) {
        classes.push_back(api + " call refused");
        classes.push_back(api + " call refused in silence");
    }
    return classes;
}

/// Whether a line is the one expected, in which a "*" may stand for anything.
bool IsSaid(const std::string& line, const std::string& expected) {
    const size_t star = expected.find('*');
    if (star == std::string::npos) {
        return line == expected;
    }
    const std::string tail = expected.substr(star + 1);
    return line.size() >= star + tail.size() && line.compare(0, star, expected, 0, star) == 0 &&
           line.compare(line.size() - tail.size(), std::string::npos, tail) == 0;
}

/// One node under test and its neighbour, from creation to destruction.
class Course {
public:
    Course(const Point& point, const std::filesystem::path& dumps)
        : point_(point), host_(OptionsFor(dumps)), prediction_(point.variant, point.InfoLog()) {
        gl_.infoLog = point.InfoLog();
        gl_.fault = [this](const GlCall& call) { return FaultOf(call); };
        gl_.watch = [this](const GlCall& call, const GlFault& fault, uint64_t answer) {
            Watch(call, fault, answer);
        };
        host_.State().libraries.SetProvider(&gl_);
        host_.SetLogLevels(point.IsLogged() ? 1 | 2 | 8 | 32 : 0, point.HasSystemLog());
        host_.State().log.SetObserver([this](const desk::LogRecord& line) { Log(line); });
        host_.State().fault = [this](const desk::HostCall& call, uint32_t& result) {
            return ServiceFault(call, result);
        };
        host_.State().clock = LUMDateTime{};
        host_.SetDumps(true);
        grid_.gridTransformEnable = 1;
        for (int i = 0; i < desk::GridPoints; ++i) {
            grid_.gridTransformArray[i] = {static_cast<float>(i % desk::GridColumns) - 17.0F,
                                           static_cast<float>(i) / 70.0F};
        }
    }

    void Run() {
        neighbour_ = host_.CreateNode(Other());
        Prepare(*neighbour_);
        neighbourInput_ = neighbour_->AllocateInput();
        neighbourOutput_ = neighbour_->AllocateOutput();
        RunNeighbour();
        RunNeighbour();
        const std::vector<std::string> expected = neighbourCalls_;
        const auto before = Held();
        RunNode();
        RunNeighbour();
        Require(neighbourCalls_ == expected, "the neighbour's frame makes other calls than before");
        auto after = Held();
        for (const auto& [what, count] : prediction_.Losses()) {
            after[what] -= count;
        }
        for (const auto& [what, count] : before) {
            Require(after[what] == count,
                    fmt::format("{} {} left, not counting established losses; {} before", after[what], what,
                                count));
        }
        neighbour_.reset();
        for (const std::string& finding : host_.State().contract.List()) {
            Require(false, "the host finds: " + finding);
        }
    }

    /// What went wrong, then the established losses: "lost: 2 wrappers".
    std::string Report() const {
        std::string text = problems;
        for (const auto& [what, count] : prediction_.Losses()) {
            text += fmt::format("lost: {} {}\n", count, what);
        }
        return text;
    }

    std::string problems;
    Counts counts;

private:
    desk::Variant Other() const {
        return point_.variant == desk::Variant::RealTime ? desk::Variant::LookAhead : desk::Variant::RealTime;
    }
    bool IsWatched() const {
        const desk::NodeState* node = desk::CurrentCall().node;
        return node != nullptr && node->variant == point_.variant;
    }
    void Require(bool holds, const std::string& otherwise) {
        if (!holds) {
            problems += "  " + otherwise + "\n";
        }
    }

    bool IsHit(const std::string& classOfCall) {
        if (!isArmed_) {
            return false;
        }
        const unsigned seen = ++counts[classOfCall];
        return classOfCall == point_.failing &&
               (point_.isLasting ? seen >= point_.first : seen == point_.first);
    }
    bool ServiceFault(const desk::HostCall& call, uint32_t& result) {
        static const std::set<std::string_view> infallible = {"LogSystem"};
        if (!IsWatched() || infallible.count(call.service) != 0) {
            return false;
        }
        const bool isAllocation = call.service == "malloc" || call.service == "posix_memalign";
        const bool isFailed = IsHit(isAllocation ? "allocation" : std::string(call.service));
        if (isFailed && (call.service == "GetVendorTagBase" || call.service == "SetGrallocMetaData")) {
            result = 2 + point_.first;
        }
        prediction_.OnService(call, isFailed, result);
        return isFailed;
    }
    GlFault FaultOf(const GlCall& call) {
        GlFault fault;
        if (!IsWatched()) {
            return fault;
        }
        const bool isStatus = call.name != "glGetProgramiv" && call.name != "glGetShaderiv";
        for (const std::string& one : ClassesOf(call)) {
            const bool isLog =
                !isStatus && call.words[1] == GL_INFO_LOG_LENGTH && one != "GL call raising its flag";
            if (!isLog && IsHit(one)) {
                fault.isRefused = one.find("refused") != std::string::npos;
                const bool isSilent = one.find("silence") != std::string::npos;
                fault.error = isSilent ? 0 : call.name[0] == 'e' ? EGL_BAD_ALLOC : GL_OUT_OF_MEMORY;
            }
        }
        return fault;
    }
    void Watch(const GlCall& call, const GlFault& fault, uint64_t answer) {
        if (call.name == "glVertexAttribPointer") {
            arrays_[call.words[0] == 4 ? 0 : 1] = reinterpret_cast<const float*>(call.words[5]);
        } else if (call.name == "glDrawElements") {
            auto& drawn = drawn_[IsWatched() ? 0 : 1];
            drawn.assign(arrays_[0], arrays_[0] + desk::MeshFloats);
            drawn.insert(drawn.end(), arrays_[1], arrays_[1] + desk::MeshFloats);
        }
        if (IsWatched()) {
            prediction_.OnGl(call, fault, answer);
        }
    }
    void Log(const desk::LogRecord& line) {
        if (line.levelLetter == "E" && IsWatched()) {
            errors_.push_back(line.function + "() " + line.text);
        } else if (line.levelLetter == "E" && desk::CurrentCall().node != nullptr) {
            Require(false, "the neighbour says: " + line.text);
        }
    }

    std::map<std::string, size_t> Held() const {
        const desk::HostCounters counters = host_.Counters();
        // The neighbour's own are in it, before as after.
        return {{"wrappers", counters.liveAllocations},
                {"libraries", counters.mappedLibraries},
                {"files", counters.openFiles},
                {"images", gl_.liveImages},
                {"names", gl_.liveNames},
                {"objects", gl_.liveObjects}};
    }

    void Prepare(desk::DeskNode& node) const {
        node.Negotiate({64, 48}, {0.25F, 0.25F});
    }

    template <typename Action>
    uint32_t Do(const char* what, Prediction::Step step, Action action) {
        prediction_.Begin(step);
        errors_.clear();
        const uint32_t result = action();
        Require(result == prediction_.Result(),
                fmt::format("{}: result {} instead of {}", what, result, prediction_.Result()));
        const std::vector<std::string> expected =
            point_.IsLogged() ? prediction_.Errors() : std::vector<std::string>();
        const bool isSaid =
            std::equal(errors_.begin(), errors_.end(), expected.begin(), expected.end(), IsSaid);
        Require(isSaid, fmt::format("{}: says\n    {}\n   instead of\n    {}", what,
                                    fmt::join(errors_, "\n    "), fmt::join(expected, "\n    ")));
        return result;
    }
    void RunNode() {
        isArmed_ = true;
        std::unique_ptr<desk::DeskNode> node;
        Do("creation", Prediction::Step::Create, [&] {
            try {
                node = host_.CreateNode(point_.variant);
                return 0U;
            } catch (const desk::NodeError& error) {
                return error.Result();
            }
        });
        if (node != nullptr) {
            RunFrames(*node);
            isArmed_ = true;
            Do("destruction", Prediction::Step::Destroy, [&] {
                node->Destroy();
                return 0U;
            });
        }
        isArmed_ = false;
        gl_.DropError();
    }
    void RunFrames(desk::DeskNode& node) {
        Do("negotiation", Prediction::Step::Negotiate, [&] {
            Prepare(node);
            return 0U;
        });
        const auto input = node.AllocateInput();
        const auto output = node.AllocateOutput();
        Require(input->Width() == (prediction_.HasMargin() ? 80U : 64U),
                "the input's size does not follow the margin");
        const auto frame = [&](const char* what, uint64_t request) {
            return Do(what, Prediction::Step::Frame,
                      [&] { return node.Process(request, &grid_, *input, *output); });
        };
        frame("importing frame", 1);
        frame("cached frame", 2);
        isArmed_ = false;
        RunNeighbour();
        isArmed_ = true;
        input->Remap();
        output->Remap();
        prediction_.OnRemap();
        frame("stale frame", 3);
        isArmed_ = false;
        drawn_[0].clear();
        const uint32_t result = frame("good frame", 4);
        Require(result != 0 || !prediction_.HasMargin() || drawn_[0] == drawn_[1],
                "the good frame draws another mesh");
    }
    void RunNeighbour() {
        gl_.DropError();
        gl_.Take();
        Require(neighbour_->Process(9, &grid_, *neighbourInput_, *neighbourOutput_) == 0,
                "the neighbour's frame fails");
        neighbourCalls_ = gl_.Take();
    }

    const Point point_;
    FakeGl gl_;
    desk::DeskHost host_;
    Prediction prediction_;
    bool isArmed_ = false;
    IPEICAGridTransform grid_ = {};
    std::vector<std::string> errors_;
    std::unique_ptr<desk::DeskNode> neighbour_;
    std::shared_ptr<desk::GrallocBuffer> neighbourInput_;
    std::shared_ptr<desk::GrallocBuffer> neighbourOutput_;
    std::vector<std::string> neighbourCalls_;
    const float* arrays_[2] = {};
    std::vector<float> drawn_[2];  // the mesh drawn last, the node's and the neighbour's
};

using Report = std::function<std::string(const Course&)>;

/// A child's whole life. An exception that gets out of it ends it as a crash does.
[[noreturn]] void RunChild(const Point& point, const std::filesystem::path& dumps, const Report& report,
                           int output) noexcept {
    ::alarm(60);
    Course course(point, dumps);
    course.Run();
    const std::string text = report(course);
    const bool isWritten = ::write(output, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    ::_exit(isWritten ? 0 : 1);  // what is lost stays lost; nothing else is torn down
}

/// Runs a point in a child process. Returns what it reports; a child that died or hung reports that.
std::string RunApart(const Point& point, const std::filesystem::path& dumps, const Report& report) {
    if (std::getenv("DEWARP_SWEEP_TOGETHER") != nullptr) {  // for what only counts at a process's regular end
        Course course(point, dumps);
        course.Run();
        return report(course);
    }
    int ends[2];
    if (::pipe(ends) != 0) {
        return "  no pipe";
    }
    const pid_t child = ::fork();
    if (child == 0) {
        RunChild(point, dumps, report, ends[1]);
    }
    ::close(ends[1]);
    std::string text;
    char buffer[4096];
    for (ssize_t got = 0; (got = ::read(ends[0], buffer, sizeof(buffer))) > 0;) {
        text.append(buffer, static_cast<size_t>(got));
    }
    ::close(ends[0]);
    int status = 0;
    ::waitpid(child, &status, 0);
    return status == 0 ? text : text + fmt::format("  the process ended with status {:#x}\n", status);
}

}  // namespace

class Sweep : public ::testing::TestWithParam<desk::Variant> {
protected:
    Sweep() : dumps_(std::filesystem::temp_directory_path() / fmt::format("dewarp-sweep-{}", ::getpid())) {
        std::filesystem::create_directory(dumps_);
    }
    ~Sweep() override {
        std::filesystem::remove_all(dumps_);
    }
    /// How often each class of calls occurs when nothing fails.
    Counts Golden() const {
        std::istringstream lines(RunApart({GetParam(), "", 0, false}, dumps_, [](const Course& course) {
            std::string text = course.problems;
            for (const auto& [name, count] : course.counts) {
                text += fmt::format("{} {}\n", count, name);
            }
            return text;
        }));
        Counts counts;
        unsigned count = 0;
        for (std::string name; lines >> count && std::getline(lines >> std::ws, name);) {
            counts[name] = count;
        }
        EXPECT_TRUE(lines.eof()) << "the course fails although nothing was made to: " << lines.str();
        return counts;
    }

    /// The kept lines about the variant whose name `after` follows.
    static std::string Kept(const char* after) {
        std::ifstream file(TEST_SWEEP_COUNTS);
        std::string lines;
        for (std::string line; std::getline(file, line);) {
            lines += line.rfind(desk::NameOf(GetParam()) + std::string(after), 0) == 0 ? line + "\n" : "";
        }
        return lines;
    }
    /// Moves the losses out of a report, keeping the largest of each kind.
    static std::string TakeLosses(const std::string& report, Counts& losses) {
        std::istringstream lines(report);
        std::string rest;
        for (std::string line; std::getline(lines, line);) {
            std::istringstream loss(line);
            unsigned count = 0;
            if (std::string head, what; loss >> head >> count >> what && head == "lost:") {
                losses[what] = std::max(losses[what], count);
            } else {
                rest += line + "\n";
            }
        }
        return rest;
    }

    const std::filesystem::path dumps_;
};

TEST_P(Sweep, CountsAreKept) {
    std::string counted;
    for (const auto& [name, count] : Golden()) {
        counted += fmt::format("{}: {} {}\n", desk::NameOf(GetParam()), count, name);
    }
    EXPECT_EQ(counted, Kept(": ")) << "another number of calls can fail than " << TEST_SWEEP_COUNTS
                                   << " says";
}

TEST_P(Sweep, EveryFaultEndsAsEstablished) {
    Counts losses;
    unsigned points = 0;
    unsigned wrong = 0;
    for (const auto& [name, count] : Golden()) {
        for (unsigned first = 1; first <= count; first += TEST_SWEEP_STRIDE) {
            for (const bool isLasting : {false, true}) {
                ++points;
                const Point point = {GetParam(), name, first, isLasting};
                const std::string problems = TakeLosses(
                    RunApart(point, dumps_, [](const Course& course) { return course.Report(); }), losses);
                if (!problems.empty() && ++wrong <= 20) {
                    ADD_FAILURE() << Name(point) << ":\n" << problems;
                }
            }
        }
    }
    EXPECT_EQ(wrong, 0U) << "of " << points << " points";
    RecordProperty("points", static_cast<int>(points));
    std::string lost;
    for (const auto& [what, most] : losses) {
        lost += fmt::format("{}, lost at most: {} {}\n", desk::NameOf(GetParam()), most, what);
    }
    if (TEST_SWEEP_STRIDE == 1) {
        EXPECT_EQ(lost, Kept(", lost at most: "))
            << "more or less stays behind than " << TEST_SWEEP_COUNTS << " says";
    }
}

INSTANTIATE_TEST_SUITE_P(Variants, Sweep,
                         ::testing::Values(desk::Variant::RealTime, desk::Variant::LookAhead),
                         [](const auto& row) {
                             return row.param == desk::Variant::RealTime ? "RealTime" : "LookAhead";
                         });
