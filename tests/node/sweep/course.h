#pragma once

#include <algorithm>

#include "desk/host/rules/node_call.h"
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

/// A node under test beside its neighbour, which is the fixture's own.
class Course : public FakeGlFixture {
protected:
    explicit Course(desk::Variant variant) : variant_(variant) {
        host_.State().clock = LUMDateTime{};
        host_.SetDumps(true);
        grid_ = Grid([](int column, int row) {
            return GridPoint{static_cast<float>(column) - 17.0F,
                             static_cast<float>(35 * row + column) / 70.0F};
        });
        gl_->watch = [this](const GlCall& call, const GlFault& fault, uint64_t answer) {
            Watch(call, fault, answer);
        };
        MakeNeighbour();
    }

    /// Takes a node from its creation to its destruction. Returns what went wrong, then what was lost and how
    /// often each class was called: "lost: 2 wrappers".
    std::string Run(const Point& point) {
        if (node_ == nullptr) {
            MakeNeighbour();
        }
        point_ = point;
        prediction_ = std::make_unique<Prediction>(variant_, point.InfoLog());
        problems_.clear();
        counts_.clear();
        gl_->infoLog = point.InfoLog();
        gl_->fault = [this](const GlCall& call) { return FaultOf(call); };
        host_.SetLogLevels(point.IsLogged() ? AllLevels : 0, point.HasSystemLog());
        host_.State().fault = [this](const desk::HostCall& call, uint32_t& result) {
            return ServiceFault(call, result);
        };
        const std::vector<std::string> expected = RunNeighbour();
        const auto before = Held();
        RunNode();
        Require(RunNeighbour() == expected, "the neighbour's frame makes other calls than before");
        auto after = Held();
        for (const auto& [what, count] : prediction_->Losses()) {
            after[what] -= count;
        }
        for (const auto& [what, count] : before) {
            Require(after[what] == count,
                    fmt::format("{} {} left, not counting established losses; {} before", after[what], what,
                                count));
        }
        node_.reset();
        Require(host_.State().contract.List().empty(),
                fmt::format("the host finds: {}", fmt::join(host_.State().contract.List(), "\n    ")));
        for (const auto& [what, count] : prediction_->Losses()) {
            problems_ += fmt::format("lost: {} {}\n", count, what);
        }
        for (const auto& [what, count] : counts_) {
            problems_ += fmt::format("called: {} {}\n", count, what);
        }
        return problems_;
    }

private:
    void MakeNeighbour() {
        MakeNode(variant_ == desk::Variant::RealTime ? desk::Variant::LookAhead : desk::Variant::RealTime);
        RunNeighbour();
    }
    bool IsWatched() const {
        const desk::NodeState* node = desk::CurrentCall().node;
        return node != nullptr && node->variant == variant_ && prediction_ != nullptr;
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
        prediction_->OnService(call, isFailed, result);
        return isFailed;
    }
    GlFault FaultOf(const GlCall& call) {
        GlFault fault;
        for (const std::string& one : IsWatched() ? ClassesOf(call) : std::vector<std::string>()) {
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
            drawn.assign(arrays_[0], arrays_[0] + desk::MeshFloats);
            drawn.insert(drawn.end(), arrays_[1], arrays_[1] + desk::MeshFloats);
        }
        if (IsWatched()) {
            prediction_->OnGl(call, fault, answer);
        }
    }

    std::map<std::string, size_t> Held() const {
        const desk::HostCounters counters = host_.Counters();
        // The neighbour's own are in it, before as after.
        return {{"wrappers", counters.liveAllocations},
                {"libraries", counters.mappedLibraries},
                {"files", counters.openFiles},
                {"images", gl_->liveImages},
                {"names", gl_->liveNames},
                {"objects", gl_->liveObjects}};
    }

    template <typename Action>
    uint32_t Do(const char* what, Prediction::Step step, Action action) {
        prediction_->Begin(step);
        TakeLog();
        const uint32_t result = action();
        Require(result == prediction_->Result(),
                fmt::format("{}: result {} instead of {}", what, result, prediction_->Result()));
        const auto expected = point_.IsLogged() ? prediction_->Errors() : std::vector<std::string>();
        const std::vector<std::string> errors = TakeLog('E');
        Require(std::equal(errors.begin(), errors.end(), expected.begin(), expected.end(),
                           [](const auto& line, const auto& text) { return IsSaid(line, "E " + text); }),
                fmt::format("{}: says\n    {}\n   instead of\n    {}", what, fmt::join(errors, "\n    "),
                            fmt::join(expected, "\n    ")));
        return result;
    }
    void RunNode() {
        isArmed_ = true;
        std::unique_ptr<desk::DeskNode> node;
        Do("creation", Prediction::Step::Create, [&] {
            try {
                node = host_.CreateNode(variant_);
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
        gl_->DropError();
    }
    void RunFrames(desk::DeskNode& node) {
        Do("negotiation", Prediction::Step::Negotiate, [&] {
            node.Negotiate({64, 48}, {0.25F, 0.25F});
            return 0U;
        });
        const auto input = node.AllocateInput();
        const auto output = node.AllocateOutput();
        Require(input->Width() == (prediction_->HasMargin() ? 80U : 64U),
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
        prediction_->OnRemap();
        frame("stale frame", 3);
        isArmed_ = false;
        drawn_[0].clear();
        const uint32_t result = frame("good frame", 4);
        Require(result != 0 || !prediction_->HasMargin() || drawn_[0] == drawn_[1],
                "the good frame draws another mesh");
    }
    /// The GL calls of a frame of the neighbour's, which has to notice nothing.
    std::vector<std::string> RunNeighbour() {
        gl_->DropError();
        gl_->Take();
        TakeLog();
        Require(Frame(9) == 0 && TakeLog('E').empty(), "the neighbour's frame fails");
        return gl_->Take();
    }

    const desk::Variant variant_;
    Point point_;
    std::unique_ptr<Prediction> prediction_;
    std::string problems_;
    Counts counts_;
    bool isArmed_ = false;
    const float* arrays_[2] = {};
    std::vector<float> drawn_[2];  // the mesh drawn last, the node's and the neighbour's
};
