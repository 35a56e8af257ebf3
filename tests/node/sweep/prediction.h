#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "desk/host/desk_host.h"
#include "tests/node/fakegl/fake_gl.h"

/// What a node has to answer and to say after the faults that were put in its way, told from what went on
/// around it alone: which services and GL calls failed, and when. Knows nothing of the library's code; what
/// follows from a failure stands in consequences.txt.
class Prediction {
public:
    enum class Step { Create, Negotiate, Frame, Destroy };

    /// `infoLog` is the driver's, of whatever fails to compile or link.
    Prediction(desk::Variant variant, std::string infoLog)
        : infoLog_(std::move(infoLog)), isRealTime_(variant == desk::Variant::RealTime) {}

    void Begin(Step step) {
        step_ = step;
        errors_.clear();
        afterProbe_ = nullptr;
        result_ = 0;
        allocations_ = arraysFailed_ = arraysTried_ = writes_ = 0;
        isWrapped_ = isOutput_ = isInputTried_ = false;
    }
    /// `result` is what a failing service returns.
    void OnService(const desk::HostCall& call, bool isFailed, uint32_t result);
    void OnGl(const GlCall& call, const GlFault& fault, uint64_t answer);
    /// The buffers of the next frame come with other addresses: cached imports are dropped.
    void OnRemap() {
        isNameless_[0] = isNameless_[1] = isInputCached_ = false;
    }

    /// Of the step begun last.
    uint32_t Result() const {
        const bool isNameless = step_ == Step::Frame && (isNameless_[0] || isNameless_[1]);
        return (result_ == 0 && isNameless) ? 1 : result_;
    }
    /// Its error lines, as "function() text"; a "*" stands for anything, pointers above all.
    const std::vector<std::string>& Errors() const {
        return errors_;
    }
    /// False once the stabiliser's margin could not be read: the input is then as small as the output.
    bool HasMargin() const {
        return hasMargin_;
    }
    /// What stays behind for good, by name. A bring-up that fails keeps its libraries and GL objects; an
    /// import that fails keeps what it had made.
    std::map<std::string, size_t> Losses() const {
        std::map<std::string, size_t> losses = losses_;
        if (isBringUpFailed_) {
            losses["libraries"] = libraries_;
            losses["objects"] = objects_ + shaders_;
        }
        return losses;
    }

private:
    void Follow(const std::string& failure, const std::string& what = "", uint64_t result = 0);
    /// "input's wrapper".
    std::string SidesOwn(const char* what) const {
        return std::string(isOutput_ ? "output's " : "input's ") + what;
    }
    void LoseImport(bool isImaged, size_t names) {
        losses_["wrappers"] += isWrapped_ ? 1U : 0U;
        losses_["images"] += isImaged ? 1U : 0U;
        losses_["names"] += names;
        isWrapped_ = false;
    }
    void OnAllocation(bool isFailed, bool isArray);
    void OnFile(const std::string& service, const std::string& path, bool isFailed);
    void OnProbe(bool isEgl, uint64_t error);
    void OnCreation(const GlCall& call, bool isRefused, uint64_t answer);
    std::string Label() const;

    const std::string infoLog_;
    const bool isRealTime_;
    Step step_ = Step::Create;
    uint32_t result_ = 0;
    std::vector<std::string> errors_;
    std::function<void()> afterProbe_;  // what follows once the failure's probe has been
    GlCall last_;                       // the last call that is no probe
    std::string beforeLast_;
    bool isRefused_ = false;  // that call
    bool isBringUpFailed_ = false;
    bool hasMargin_ = true;
    unsigned allocations_ = 0;  // of this step
    bool isWrapped_ = false;    // the import under way has its wrapper
    bool isOutput_ = false;     // it is the output's
    bool isInputTried_ = false;
    bool isInputCached_ = false;
    unsigned writes_ = 0;  // of this step
    unsigned gridDumps_ = 0;
    unsigned meshDumps_ = 0;
    bool hasArrays_ = false;
    unsigned arraysFailed_ = 0;
    unsigned arraysTried_ = 0;
    bool isNameless_[2] = {};  // cached imports without a GL name, input and output
    size_t libraries_ = 0;     // mapped by the bring-up, as are the next
    size_t objects_ = 0;       // context, surface, program
    size_t shaders_ = 0;
    bool isLatestMade_ = false;  // the shader or program made last
    unsigned stages_ = 0;        // that the bring-up asked the status of
    std::map<std::string, size_t> losses_;
};
