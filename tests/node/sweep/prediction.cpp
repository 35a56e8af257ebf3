#include "tests/node/sweep/prediction.h"

#include <fmt/format.h>

#include <array>
#include <fstream>
#include <set>
#include <sstream>
#include <stdexcept>

#include "node/dewarp/gpu/gpuapi.h"

namespace {

struct Consequence {
    std::string failure;
    std::string variant;
    std::string result;
    std::string line;
};

std::vector<Consequence> ReadConsequences() {
    std::vector<Consequence> all;
    std::ifstream file(TEST_SWEEP_CONSEQUENCES);
    for (std::string line; std::getline(file, line);) {
        if (line.rfind('#', 0) == 0) {
            continue;
        }
        std::array<std::string, 4> fields;
        std::istringstream row(line);
        for (std::string& field : fields) {
            std::getline(row >> std::ws, field, &field == &fields.back() ? '\n' : '|');
            field.erase(field.find_last_not_of(' ') + 1);
        }
        if (fields[2].empty()) {
            throw std::runtime_error("expected failure | variant | result | line, got " + line);
        }
        all.push_back({fields[0], fields[1], fields[2], fields[3]});
    }
    return all;
}

bool Begins(const std::string& text, const char* head) {
    return text.rfind(head, 0) == 0;
}

}  // namespace

void Prediction::Follow(const std::string& failure, const std::string& what, uint64_t result) {
    static const std::vector<Consequence> consequences = ReadConsequences();
    const int variant = isRealTime_ ? 2 : 3;
    for (const Consequence& one : consequences) {
        const bool isBringUp = one.result == "bring-up";
        if (one.failure != failure || (one.variant != "*" && one.variant != std::to_string(variant)) ||
            (isBringUp && std::exchange(isBringUpFailed_, true))) {
            continue;
        }
        if (!one.line.empty()) {
            errors_.push_back(fmt::format(fmt::runtime(one.line), fmt::arg("v", variant),
                                          fmt::arg("what", what), fmt::arg("result", result)));
        }
        if (isBringUp) {
            errors_.push_back(
                fmt::format("Initialize() [DEWARP_{}] OpenGL instance Initialize failed", variant));
        }
        const uint64_t answer = isBringUp ? 1 : one.result == "own" ? result : std::stoul(one.result);
        result_ = (result_ == 0) ? static_cast<uint32_t>(answer) : result_;
    }
}

void Prediction::OnAllocation(bool isFailed, bool isArray) {
    ++allocations_;
    std::string failure;
    if (step_ == Step::Create) {  // without a config list there is no context
        failure = isArray ? "" : allocations_ == 2 ? "the engine" : "the node or the lock";
    } else if (isArray && !hasArrays_) {  // both are always asked for
        arraysFailed_ += isFailed ? 1U : 0U;
        failure = arraysFailed_ == 1 ? "the vertices" : "";
        hasArrays_ = ++arraysTried_ == 2 && arraysFailed_ == 0;
    } else if (isArray) {
        failure = "the indices";
    } else if (!isWrapped_) {
        isWrapped_ = !isFailed;
        failure = "an " + SidesOwn("wrapper");
    } else {  // without it the import is undone
        isWrapped_ = false;
        isInputCached_ = isInputCached_ || (!isOutput_ && !isFailed);
        failure = "a cache entry";
    }
    if (isFailed) {
        Follow("allocation of " + failure);
    }
}

void Prediction::OnService(const desk::HostCall& call, bool isFailed, uint32_t result) {
    const std::string service(call.service);
    const std::string subject(call.subject);
    const bool isGeometry = subject == "10009";
    if (service == "malloc" || service == "posix_memalign") {
        return OnAllocation(isFailed, service == "malloc");
    }
    if (service == "SetGrallocMetaData" && isGeometry) {  // an import begins, the input's first
        isOutput_ = isInputCached_ || isInputTried_;
        isInputTried_ = true;
    }
    if (service == "FOpen" || service == "FWrite" || service == "FClose") {
        return OnFile(service, subject, isFailed);
    }
    if (!isFailed) {
        libraries_ += service == "LibMapFullName" ? 1U : 0U;
    } else if (service == "GetVendorTagBase") {
        const std::string tag = subject.substr(subject.find('/') + 1);
        hasMargin_ = hasMargin_ && tag != "RequestedMargin";
        Follow("GetVendorTagBase " + tag, "", result);
    } else if (service == "GetMetaData") {
        hasMargin_ = hasMargin_ && step_ != Step::Negotiate;
        Follow(step_ == Step::Negotiate ? "GetMetaData of the margin" : "GetMetaData of the grid");
    } else if (service == "SetMetadata" && step_ == Step::Negotiate) {
        Follow("SetMetadata of the size");
    } else if (service == "LibMapFullName" || service == "LibGetAddr") {
        static const std::set<std::string> optional = {"glFlush", "glEGLImageTargetRenderbufferStorageOES"};
        const bool isEgl = subject.find("libEGL") != std::string::npos || Begins(subject, "egl");
        const std::string api = isEgl ? "egl" : "gl";
        if (service == "LibMapFullName") {
            Follow("LibMapFullName " + api);
        }
        if (optional.count(subject) == 0) {
            Follow("LibGetAddr " + api);
        }
    } else if (service == "SetGrallocMetaData") {
        Follow("SetGrallocMetaData of an " + SidesOwn(isGeometry ? "geometry" : "colour"), "", result);
        if (!isGeometry) {  // the wrapper is made all the same, and never seen by EGL
            losses_["wrappers"] += 1;
            isWrapped_ = false;
        }
    }
}

void Prediction::OnFile(const std::string& service, const std::string& path, bool isFailed) {
    bool isGrid = false;
    if (service == "FOpen") {
        const bool isTex = path.find("_Tex_") != std::string::npos;
        isGrid = path.find("_Grid_") != std::string::npos;
        if (isFailed) {
            Follow(isGrid ? "FOpen Grid" : isTex ? "FOpen Tex" : "FOpen Vert", path);
        } else {
            (isGrid ? gridDumps_ : meshDumps_) += 1;
        }
        return;
    }
    if (service == "FWrite") {  // the grid comes first
        isGrid = writes_++ < gridDumps_;
    } else {  // the grid's closes last
        isGrid = meshDumps_ == 0;
        meshDumps_ -= isGrid ? 0U : 1U;
    }
    if (isFailed) {
        Follow(service + (isGrid ? " of the grid" : " of the mesh"));
    }
}

/// What a probe calls the call that it follows.
std::string Prediction::Label() const {
    static const std::map<std::string, const char*> labels = {
        {"glAttachShader", "Attach shaders"},        {"glGetProgramiv", "Link program"},
        {"glDeleteProgram", "m_pfngldeleteprogram"}, {"glBufferData", "glBufferData pIndices"},
        {"eglCreateImageKHR", "EGLImage creation"},  {"eglDestroyImageKHR", "Destroy image"}};
    const auto known = labels.find(last_.name);
    if (last_.name == "glVertexAttribPointer") {
        return last_.name + (last_.words[0] == 4 ? " pVertices" : " pTexCoordinates");
    }
    if (last_.name == "glBindBuffer" && beforeLast_ == "glGenBuffers") {
        return "glBindBuffer pIndices";
    }
    return known != labels.end() ? known->second : last_.name;
}

void Prediction::OnProbe(bool isEgl, uint64_t error) {
    const bool isError = error != (isEgl ? EGL_SUCCESS : GL_NO_ERROR);
    const bool isOfBringUp = step_ == Step::Create && last_.name == "eglMakeCurrent";
    if (isOfBringUp && last_.words[1] != 0) {
        return;  // no probe: the code goes into a message, read once per sink
    }
    if (isError) {
        Follow(isOfBringUp ? "EGL error of the first release"
               : isEgl     ? "EGL error"
                           : "GL error",
               Label(), error);
    }
    if (afterProbe_) {
        std::exchange(afterProbe_, nullptr)();
    }
    const bool isTarget = last_.name == "glGenFramebuffers";
    if (!isTarget && last_.name != "glGenTextures") {
        return;
    }
    if (isError) {  // a name that is there nevertheless serves this frame; the import is not kept
        LoseImport(true, isRefused_ ? 0 : 1);
        if (isTarget) {
            Follow("framebuffer's name in error");
        }
        result_ = (result_ == 0 && isRefused_) ? 1 : result_;
    } else if (isRefused_) {
        isNameless_[isTarget ? 1 : 0] = true;
    }
}

void Prediction::OnGl(const GlCall& call, const GlFault& fault, uint64_t answer) {
    if (call.name == "glGetError" || call.name == "eglGetError") {
        return OnProbe(call.name == "eglGetError", answer);
    }
    beforeLast_ = last_.name;
    last_ = call;
    isRefused_ = fault.isRefused;
    if (step_ == Step::Create) {
        OnCreation(call, fault.isRefused, answer);
    } else if (call.name == "eglCreateImageKHR" && answer == 0) {
        afterProbe_ = [this] { Follow("no " + SidesOwn("image")); };
        LoseImport(false, 0);
    } else if (call.name == "glCheckFramebufferStatus" && answer != GL_FRAMEBUFFER_COMPLETE) {
        Follow("framebuffer incomplete", "", answer);
    }
}

void Prediction::OnCreation(const GlCall& call, bool isRefused, uint64_t answer) {
    const bool isShader = call.name == "glCreateShader";
    if (isShader || Begins(call.name, "glCreate") || Begins(call.name, "eglCreate")) {
        isLatestMade_ = answer != 0;
        (isShader ? shaders_ : objects_) += isLatestMade_ ? 1U : 0U;
    }
    if (call.name == "eglCreateContext" && answer == 0) {
        Follow("no context");
    } else if (call.name == "eglCreatePbufferSurface" && answer == 0) {
        Follow("no surface");
    } else if (call.name == "eglMakeCurrent" && call.words[1] != 0 && answer == 0) {
        Follow("context not current");
    }
    const bool isProgram = call.name == "glGetProgramiv";
    if ((!isProgram && call.name != "glGetShaderiv") || call.words[1] == GL_INFO_LOG_LENGTH) {
        return;
    }
    const bool isVertex = stages_++ == 0;
    if (!isRefused) {
        shaders_ = isProgram ? 0 : shaders_;  // a linked program needs them no more
        return;
    }
    (isProgram ? objects_ : shaders_) -= isLatestMade_ ? 1U : 0U;  // the failed one is deleted
    const auto follow = [this, isProgram, isVertex] {
        Follow(isProgram ? "program not linked" : "shader not compiled");
        if (!infoLog_.empty()) {
            Follow(isProgram ? "program's log" : "shader's log", infoLog_);
        }
        Follow(isProgram ? "no program" : isVertex ? "no vertex shader" : "no fragment shader");
    };
    if (isProgram) {
        afterProbe_ = follow;
    } else {
        follow();
    }
}
