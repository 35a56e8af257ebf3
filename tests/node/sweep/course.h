#pragma once

#include <algorithm>

#include "desk/host/desk_node.h"
#include "node/dewarp/gpu/gpuapi.h"
#include "tests/node/fakegl/fake_gl_fixture.h"
#include "tests/node/sweep/point.h"
#include "tests/node/sweep/prediction.h"

/// Whether a line is the one expected, in which a "*" may stand for anything.
inline bool IsSaid(const std::string& line, const std::string& expected) {
    const size_t star = expected.find('*');
    const size_t tail = star == std::string::npos ? 0 : expected.size() - star - 1;
    return tail == 0 ? line.substr(0, star) == expected.substr(0, star)
                     : line.size() >= star + tail && line.substr(0, star) == expected.substr(0, star) &&
                           line.substr(line.size() - tail) == expected.substr(star + 1);
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
        for (int i = 0; i < 945; ++i) {
            grid_.gridTransformArray[i] = {static_cast<float>(i % 35) - 17.0F, static_cast<float>(i) / 70.0F};
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

    /// What went wrong, then what was lost and how often each class was called: "lost: 2 wrappers".
    std::string Report() const {
        std::string text = problems_;
        for (const auto& [what, count] : prediction_.Losses()) {
            text += fmt::format("lost: {} {}\n", count, what);
        }
        for (const auto& [what, count] : counts_) {
            text += fmt::format("called: {} {}\n", count, what);
        }
        return text;
    }

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
            problems_ += "  " + otherwise + "\n";
        }
    }

    bool IsHit(const std::string& classOfCall) {
        if (!isArmed_) {
            return false;
        }
        const unsigned seen = ++counts_[classOfCall];
        return classOfCall == point_.failing &&
               (point_.isLasting ? seen >= point_.first : seen == point_.first);
    }
    bool ServiceFault(const desk::HostCall& call, uint32_t& result) {
        if (!IsWatched() || call.service == "LogSystem") {  // which cannot fail
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
        for (const std::string& one : ClassesOf(call)) {
            if (IsHit(one)) {
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
            drawn.assign(arrays_[0], arrays_[0] + 1650);
            drawn.insert(drawn.end(), arrays_[1], arrays_[1] + 1650);
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

    uint32_t Prepare(desk::DeskNode& node) const {
        node.Negotiate({64, 48}, {0.25F, 0.25F});
        return 0;
    }
    template <typename Action>
    uint32_t Do(const char* what, Prediction::Step step, Action action) {
        prediction_.Begin(step);
        errors_.clear();
        const uint32_t result = action();
        Require(result == prediction_.Result(),
                fmt::format("{}: result {} instead of {}", what, result, prediction_.Result()));
        const auto expected = point_.IsLogged() ? prediction_.Errors() : std::vector<std::string>();
        Require(std::equal(errors_.begin(), errors_.end(), expected.begin(), expected.end(), IsSaid),
                fmt::format("{}: says\n    {}\n   instead of\n    {}", what, fmt::join(errors_, "\n    "),
                            fmt::join(expected, "\n    ")));
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
        Do("negotiation", Prediction::Step::Negotiate, [&] { return Prepare(node); });
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
    std::string problems_;
    Counts counts_;
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
