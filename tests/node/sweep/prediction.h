#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "desk/host/desk_host.h"
#include "tests/node/fakegl/fake_gl.h"

/// What a node has to answer and to say after the faults that were put in its way, told from what went on
/// around it alone: which services and GL calls failed, and when. Knows nothing of the library's code.
class Prediction {
public:
    enum class Step { Create, Negotiate, Frame, Destroy };

    /// `infoLog` is the driver's, of whatever fails to compile or link.
    Prediction(desk::Variant variant, std::string infoLog);

    void Begin(Step step);
    /// `result` is what a failing service returns.
    void OnService(const desk::HostCall& call, bool isFailed, uint32_t result);
    void OnGl(const GlCall& call, const GlFault& fault, uint64_t answer);
    /// The buffers of the next frame come with other addresses: cached imports are dropped.
    void OnRemap();

    /// Of the step begun last.
    uint32_t Result() const;
    /// Its error lines, as "function() text"; a "*" stands for anything, pointers above all.
    const std::vector<std::string>& Errors() const;

    /// False once the stabiliser's margin could not be read: the input is then as small as the output.
    bool HasMargin() const {
        return hasMargin_;
    }

    /// What stays behind for good, by name. A bring-up that fails keeps its libraries and GL objects; an
    /// import that fails keeps what it had made.
    std::map<std::string, size_t> Losses() const;

private:
    void Say(const std::string& function, const std::string& text);
    void SayInfoLog(const std::string& function, const std::string& text);
    void SayImport(const char* input, const char* output);
    void Fail(uint32_t result);
    void FailBringUp(const std::string& function, const std::string& text);
    void FailImport(bool isImaged, size_t names);
    void OnTag(const std::string& subject, uint32_t result);
    void OnLibrary(const std::string& service, const std::string& subject);
    void OnFile(const std::string& service, const std::string& path, bool isFailed);
    void OnAllocation(bool isFailed, bool isArray);
    void OnProbe(const GlCall& call, uint64_t error);
    std::string Label() const;

    const std::string infoLog_;
    const bool isRealTime_;
    const std::string dimsFunction_;
    const std::string marginFunction_;
    Step step_ = Step::Create;
    uint32_t result_ = 0;
    std::vector<std::string> errors_;
    std::function<void()> afterProbe_;  // what is said once the failure's probe has been
    GlCall last_;                       // the last call that is no probe
    std::string beforeLast_;
    bool isAnswerNull_ = false;  // of that call
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
    bool hasIndices_ = false;
    unsigned arraysFailed_ = 0;
    unsigned arraysTried_ = 0;
    bool isNameless_[2] = {};  // cached imports without a GL name, input and output
    std::map<std::string, size_t> made_;
    std::map<std::string, size_t> losses_;
};
