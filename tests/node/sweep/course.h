#pragma once

#include <fmt/format.h>

#include <map>
#include <regex>
#include <set>

#include "desk/host/rules/node_call.h"
#include "node/dewarp/gpu/gpuapi.h"
#include "tests/node/fakegl/fake_gl_fixture.h"

using Counts = std::map<std::string, unsigned>;

struct Point {
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
    std::string Name() const {
        return failing.empty() ? "no fault"
                               : fmt::format("{} {:3}{}", failing, first, isLasting ? " and later" : "");
    }
};

/// The classes that a GL call belongs to.
inline std::vector<std::string> ClassesOf(const GlCall& call) {
    const std::string api = call.name.rfind("egl", 0) == 0 ? "EGL" : "GL";
    if (call.name == "glGetError" || call.name == "eglGetError") {
        return {api + " flag set when read"};
    }
    std::vector<std::string> classes = {api + " call raising its flag"};
    static const std::set<std::string> refusable = {"glCheckFramebufferStatus", "glCreateProgram",
                                                    "glCreateShader", "glGetProgramiv", "glGetShaderiv"};
    const bool isOfLog = call.words.size() == 3 && call.words[1] == GL_INFO_LOG_LENGTH;
    if (api == "EGL" || call.name.rfind("glGen", 0) == 0 || (refusable.count(call.name) != 0 && !isOfLog)) {
        classes.push_back(api + " call refused");
        classes.push_back(api + " call refused in silence");
    }
    return classes;
}

/// A node under test beside its neighbour, which is the fixture's own.
class Course : public FakeGlFixture {
protected:
    explicit Course(desk::Variant variant) : variant_(variant) {
        host_.clock = LUMDateTime{};
        grid_ = Grid([](int column, int row) {
            return GridPoint{static_cast<float>(column) - 17.0F,
                             static_cast<float>(35 * row + column) / 70.0F};
        });
        gl_->watch = [this](const GlCall& call, const GlFault&, uint64_t) { Watch(call); };
        gl_->fault = [this](const GlCall& call) { return FaultOf(call); };
        host_.fault = [this](const desk::HostCall& call, uint32_t& result) {
            return ServiceFault(call, result);
        };
    }

    /// Takes a node from its creation to its destruction. Returns what came of it, line by line: the call
    /// that failed first, the steps with another result than 0 or with error lines, and what stays behind.
    /// Without a fault, how often each class was called.
    std::string Run(const Point& point) {
        host_.SetDumps(false);  // the neighbour's would only take time
        MakeNode(variant_ == desk::Variant::RealTime ? desk::Variant::LookAhead : desk::Variant::RealTime);
        RunNeighbour();
        host_.SetDumps(true);
        point_ = point;
        outcome_.clear();
        counts_.clear();
        // What the driver says of a shader or program that fails: something or nothing.
        gl_->infoLog = point.isLasting ? "" : "broken";
        host_.SetLogLevels(point.IsLogged() ? AllLevels : 0, point.HasSystemLog());
        const std::vector<std::string> expected = RunNeighbour();
        const auto before = Held();
        RunNode();
        Require(RunNeighbour() == expected, "the neighbour's frame makes other calls than before");
        for (const auto& [what, count] : Held()) {
            if (count != before.at(what)) {
                Tell(fmt::format("{} {} stay behind", count - before.at(what), what));
            }
        }
        node_.reset();
        for (const std::string& finding : host_.contract.List()) {
            Tell("the host finds: " + finding);
        }
        for (const auto& [what, count] : point.failing.empty() ? counts_ : Counts()) {
            Tell(fmt::format("{} {}", count, what));
        }
        return outcome_;
    }

private:
    bool IsWatched() const {
        const desk::NodeState* node = desk::CurrentCall().node;
        return node != nullptr && node->variant == variant_;
    }
    /// One line of the outcome, without what differs from variant to variant or from run to run: this
    /// variant's number and addresses. Of entry points those alone are named that are missing.
    void Tell(std::string line) {
        for (const auto& [pattern, replacement] : masks_) {
            line = std::regex_replace(line, pattern, replacement);
        }
        outcome_ += line + "\n";
    }
    void Require(bool holds, const char* otherwise) {
        if (!holds) {
            Tell(otherwise);
        }
    }

    /// Whether a call of this class fails; `name` is the call's own.
    bool IsHit(const std::string& classOfCall, const std::string& name) {
        if (!isArmed_) {
            return false;
        }
        const unsigned seen = ++counts_[classOfCall];
        if (classOfCall != point_.failing || seen < point_.first ||
            (seen > point_.first && !point_.isLasting)) {
            return false;
        }
        if (seen == point_.first) {
            Tell(name + " fails");
        }
        return true;
    }
    bool ServiceFault(const desk::HostCall& call, uint32_t& result) {
        if (!IsWatched() || call.service == "LogSystem") {  // which cannot fail
            return false;
        }
        const bool isAllocation = call.service == "malloc" || call.service == "posix_memalign";
        const bool isFailed = IsHit(isAllocation ? "allocation" : std::string(call.service),
                                    fmt::format("{}({})", call.service, call.subject));
        if (isFailed && (call.service == "GetVendorTagBase" || call.service == "SetGrallocMetaData")) {
            result = 2 + point_.first;
        }
        return isFailed;
    }
    GlFault FaultOf(const GlCall& call) {
        GlFault fault;
        for (const std::string& one : IsWatched() ? ClassesOf(call) : std::vector<std::string>()) {
            if (IsHit(one, call.name)) {
                fault.isRefused = one.find("refused") != std::string::npos;
                const bool isSilent = one.find("silence") != std::string::npos;
                fault.error = isSilent ? 0 : call.name[0] == 'e' ? EGL_BAD_ALLOC : GL_OUT_OF_MEMORY;
            }
        }
        return fault;
    }
    void Watch(const GlCall& call) {
        if (call.name == "glVertexAttribPointer") {
            arrays_[call.words[0] == 4 ? 0 : 1] = reinterpret_cast<const float*>(call.words[5]);
        } else if (call.name == "glDrawElements") {
            auto& drawn = drawn_[IsWatched() ? 0 : 1];
            drawn.assign(arrays_[0], arrays_[0] + desk::MeshFloats);
            drawn.insert(drawn.end(), arrays_[1], arrays_[1] + desk::MeshFloats);
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
    uint32_t Do(const char* what, Action action) {
        TakeLog();
        uint32_t result = 0;
        try {
            action(result);
        } catch (const desk::NodeError& error) {
            result = error.result;
        }
        const std::vector<std::string> errors = TakeLog('E');
        if (result != 0 || !errors.empty()) {
            Tell(fmt::format("{}: {}", what, result));
        }
        for (const std::string& line : errors) {
            Tell("  " + line);
        }
        return result;
    }
    void RunNode() {
        isArmed_ = true;
        std::unique_ptr<desk::DeskNode> node;
        Do("creation", [&](uint32_t&) { node = host_.CreateNode(variant_); });
        if (node != nullptr) {
            RunFrames(*node);
            isArmed_ = true;
            Do("destruction", [&](uint32_t&) { node->Destroy(); });
        }
        isArmed_ = false;
        gl_->DropError();
    }
    void RunFrames(desk::DeskNode& node) {
        Do("negotiation", [&](uint32_t&) { node.Negotiate({64, 48}, {0.25F, 0.25F}); });
        const auto input = node.AllocateInput();
        const auto output = node.AllocateOutput();
        const bool hasMargin = input->Width() == 80;
        Require(hasMargin, "the input has no margin");
        const auto frame = [&](const char* what, uint64_t request) {
            return Do(what,
                      [&](uint32_t& result) { result = node.Process(request, &grid_, *input, *output); });
        };
        frame("importing frame", 1);
        frame("cached frame", 2);
        isArmed_ = false;
        RunNeighbour();
        isArmed_ = true;
        input->Remap();
        output->Remap();
        frame("stale frame", 3);
        isArmed_ = false;
        drawn_[0].clear();
        const uint32_t result = frame("good frame", 4);
        Require(result != 0 || !hasMargin || drawn_[0] == drawn_[1], "the good frame draws another mesh");
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
    const std::pair<std::regex, const char*> masks_[4] = {
        {std::regex(variant_ == desk::Variant::RealTime ? "(DEWARP_|Warp)2" : "(DEWARP_|Warp)3"), "$01v"},
        {std::regex(R"(andle (0x\w+|\(nil\)))"), "andle *"},
        {std::regex(R"(\[(0x0|\(nil\))\])"), "[null]"},
        {std::regex(R"( m_pfn\w+\[0x\w+\],?)"), ""}};
    Point point_;
    std::string outcome_;
    Counts counts_;
    bool isArmed_ = false;
    const float* arrays_[2] = {};
    std::vector<float> drawn_[2];  // the mesh drawn last, the node's and the neighbour's
};
