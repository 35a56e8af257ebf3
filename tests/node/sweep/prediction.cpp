#include "tests/node/sweep/prediction.h"

#include <fmt/format.h>

#include <set>
#include <utility>

#include "node/dewarp/gpu/gpuapi.h"

namespace {

constexpr uint32_t GlNoError = 0;
constexpr uint32_t EglSuccess = 0x3000;

bool Begins(const std::string& text, const char* head) {
    return text.rfind(head, 0) == 0;
}

}  // namespace

Prediction::Prediction(desk::Variant variant, std::string infoLog)
    : infoLog_(std::move(infoLog)),
      isRealTime_(variant == desk::Variant::RealTime),
      dimsFunction_(isRealTime_ ? "SetStabilizedOutputDimsRealTime" : "SetStabilizedOutputDimsLookAhead"),
      marginFunction_(isRealTime_ ? "GetEisV2Margin" : "GetEisV3Margin") {}

void Prediction::Begin(Step step) {
    step_ = step;
    errors_.clear();
    afterProbe_ = nullptr;
    result_ = 0;
    allocations_ = arraysFailed_ = arraysTried_ = writes_ = 0;
    isWrapped_ = isOutput_ = isInputTried_ = false;
}

uint32_t Prediction::Result() const {
    const bool isNameless = step_ == Step::Frame && (isNameless_[0] || isNameless_[1]);
    return (result_ == 0 && isNameless) ? 1 : result_;
}

const std::vector<std::string>& Prediction::Errors() const {
    return errors_;
}

std::map<std::string, size_t> Prediction::Losses() const {
    std::map<std::string, size_t> losses = losses_;
    if (isBringUpFailed_) {
        losses["libraries"] = made_.count("libraries") != 0 ? made_.at("libraries") : 0;
        losses["objects"] = (made_.count("objects") != 0 ? made_.at("objects") : 0) +
                            (made_.count("shaders") != 0 ? made_.at("shaders") : 0);
    }
    return losses;
}

void Prediction::OnRemap() {
    isNameless_[0] = isNameless_[1] = isInputCached_ = false;
}

void Prediction::Say(const std::string& function, const std::string& text) {
    errors_.push_back(fmt::format("{}() [DEWARP_{}] {}", function, isRealTime_ ? 2 : 3, text));
}

void Prediction::Fail(uint32_t result) {
    result_ = (result_ == 0) ? result : result_;
}

void Prediction::FailBringUp(const std::string& function, const std::string& text) {
    if (!isBringUpFailed_) {
        isBringUpFailed_ = true;
        Say(function, text);
        Say("Initialize", "OpenGL instance Initialize failed");
        Fail(1);
    }
}

void Prediction::FailImport(bool isImaged, size_t names) {
    losses_["wrappers"] += isWrapped_ ? 1U : 0U;
    losses_["images"] += isImaged ? 1U : 0U;
    losses_["names"] += names;
    isWrapped_ = false;
}

void Prediction::OnTag(const std::string& subject, uint32_t result) {
    const std::string tag = subject.substr(subject.find('/') + 1);
    const std::string eis = isRealTime_ ? "EISV2" : "EISV3";
    if (tag == "StabilizedOutputDims") {
        return Say(dimsFunction_, isRealTime_ ? "Failure to get tag" : "Failure get to tag");
    }
    if (tag == "RequestedMargin") {
        hasMargin_ = false;
        return Say(marginFunction_,
                   isRealTime_ ? "Failure in get EISV2 margin tag" : "Failure in EISV3 margin tag");
    }
    if (tag == "ExtraFrameworkBuffers") {
        errors_.emplace_back("DewarpNodeCreate() Unable to get ExtraFrameworkBuffers Vendor Tag Id EISV3");
        return Fail(1);
    }
    Say("Initialize", tag == "preview"
                          ? fmt::format("Unable to get StreamTypePresent Vendor Tag Id {}", result)
                      : Begins(tag, "ICAInPerspectiveTransform")
                          ? "Unable to get ICA In Perspective Transform Vendor Tag Id " + eis
                          : "Unable to get ICA In Grid Transform Vendor Tag Id " + eis);
    Fail(result);
}

void Prediction::OnAllocation(bool isFailed, bool isArray) {
    ++allocations_;
    if (step_ == Step::Create) {
        if (isFailed &&
            !isArray) {  // the node, the engine, the lock; without a config list there is no context
            Fail(8);
            if (allocations_ == 2) {
                Say("Initialize", "OpenGL instance creation failed");
            }
        }
    } else if (isArray && !hasArrays_) {  // both are always asked for
        arraysFailed_ += isFailed ? 1U : 0U;
        if (isFailed && arraysFailed_ == 1) {
            Say("DewarpImage", "m_pVertices or m_pTexCoordinates is null!");
            Fail(1);
        }
        hasArrays_ = ++arraysTried_ == 2 && arraysFailed_ == 0;
    } else if (isArray) {
        hasIndices_ = !isFailed;
        if (isFailed) {
            Say("DewarpImage", "m_pIndices is null!");
            Fail(1);
        }
    } else if (!isWrapped_) {
        isWrapped_ = !isFailed;
        if (isFailed) {
            SayImport("GraphicBuffer Creation Failed, pNativeHandle *",
                      "GraphicBuffer Creation Failed handle *");
            Fail(1);
        }
    } else {  // the cache entry; without it the import is undone
        isWrapped_ = false;
        isInputCached_ = isInputCached_ || (!isOutput_ && !isFailed);
        if (isFailed) {
            Fail(1);
        }
    }
}

void Prediction::SayInfoLog(const std::string& function, const std::string& text) {
    if (!infoLog_.empty()) {
        Say(function, fmt::format("{} [{}]", text, infoLog_));
    }
}

void Prediction::SayImport(const char* input, const char* output) {
    Say(isOutput_ ? "GetOutputFrameBuffer" : "GetSourceTexture",
        std::string(isOutput_ ? output : input) + " (Check if buf is EGL or not)");
}

void Prediction::OnService(const desk::HostCall& call, bool isFailed, uint32_t result) {
    const std::string service(call.service);
    const std::string subject(call.subject);
    if (service == "malloc" || service == "posix_memalign") {
        return OnAllocation(isFailed, service == "malloc");
    }
    if (service == "SetGrallocMetaData" && subject == "10009") {  // an import begins, the input's first
        isOutput_ = isInputCached_ || isInputTried_;
        isInputTried_ = true;
    }
    if (service == "FOpen" || service == "FWrite" || service == "FClose") {
        return OnFile(service, subject, isFailed);
    }
    if (!isFailed) {
        made_["libraries"] += service == "LibMapFullName" ? 1U : 0U;
    } else if (service == "GetVendorTagBase") {
        OnTag(subject, result);
    } else if (service == "GetMetaData" && step_ == Step::Negotiate) {
        hasMargin_ = false;
        Say(marginFunction_,
            isRealTime_ ? "Failure in Retreiving EISV2 margin" : "Failure in Retreiving EISV3 margin");
    } else if (service == "GetMetaData") {
        Say("ProcessRequest", "Unable to read m_vendorTagId.ICAInGridTransformTagId vendor tag locations");
        Fail(1);
    } else if (service == "SetMetadata" && step_ == Step::Negotiate) {
        Say(dimsFunction_, isRealTime_ ? "Failure WriteEIsV2 Dims" : "Failure WriteEIsV3 Dims");
    } else if (service == "LibMapFullName" || service == "LibGetAddr") {
        OnLibrary(service, subject);
    } else if (service == "SetGrallocMetaData" && subject == "10009") {
        Say(isOutput_ ? "GetOutputFrameBuffer" : "GetSourceTexture",
            fmt::format("SetGrallocMetaData(UPDATE_BUFFER_GEOMETRY) failed {}", result));
    } else if (service == "SetGrallocMetaData") {
        const std::string text =
            fmt::format("SetGrallocMetaData(COLOR_METADATA) failed {}, handle *", result);
        SayImport(text.c_str(), text.c_str());
        Fail(1);
        losses_["wrappers"] += 1;  // made all the same, and never seen by EGL
        isWrapped_ = false;
    }
}

void Prediction::OnLibrary(const std::string& service, const std::string& subject) {
    static const std::set<std::string> optional = {"glFlush", "glEGLImageTargetRenderbufferStorageOES"};
    const bool isEgl = subject.find("libEGL") != std::string::npos || Begins(subject, "egl");
    const std::string library = isEgl ? "libEGL" : "libGLESv2";
    const std::string function = isEgl ? "LoadEGLLib" : "LoadGLESv2Lib";
    if (service == "LibMapFullName") {
        Say(function, fmt::format("Unable to load {} library Path[/system/lib64/{}.so]",
                                  isEgl ? "EGL" : "OpenGL", library));
    } else if (optional.count(subject) != 0) {
        return;
    }
    FailBringUp(function, fmt::format("Error Initializing one or more function pointers in Library: "
                                      "/system/lib64/{0}.so{0}.so m_pfn{1}[*]",
                                      library, isEgl ? "eglgetdisplay" : "glgetattriblocation"));
}

void Prediction::OnFile(const std::string& service, const std::string& path, bool isFailed) {
    if (service == "FOpen") {
        const bool isTex = path.find("_Tex_") != std::string::npos;
        const bool isVert = path.find("_Vert_") != std::string::npos;
        if (isFailed) {
            Say("Initialize", fmt::format("Can't open {} for {} output dump !", path,
                                          isTex    ? "Tex"
                                          : isVert ? "Vertices"
                                                   : "Warp"));
        } else {
            (isTex || isVert ? meshDumps_ : gridDumps_) += 1;
        }
    } else if (service == "FWrite") {  // the grid comes first
        const bool isGrid = writes_++ < gridDumps_;
        if (isFailed) {
            errors_.emplace_back(isGrid ? "WriteGridToFile() File write failed !"
                                        : "WriteVerticesAndTexCoordinatesToFile() File write failed !");
        }
    } else {  // the grid's closes last
        const bool isGrid = meshDumps_ == 0;
        meshDumps_ -= isGrid ? 0U : 1U;
        if (isFailed) {
            Say(isGrid ? "~LumDewarpNode" : "Uninitialize", "Warp dump file close failed");
        }
    }
}

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

void Prediction::OnProbe(const GlCall& call, uint64_t error) {
    const bool isEgl = call.name == "eglGetError";
    const bool isError = error != (isEgl ? EglSuccess : GlNoError);
    const bool isReleased = last_.name == "eglMakeCurrent" && last_.words[1] == 0;
    if (step_ == Step::Create && last_.name == "eglMakeCurrent" && !isReleased) {
        return;  // no probe: the code goes into a message, read once per sink
    }
    const std::string function = isEgl ? "CheckEglError" : "CheckglError";
    const std::string line =
        fmt::format("after {}() {} (0x{:x})", Label(), isEgl ? "eglError" : "glError", error);
    if (isError && step_ == Step::Create && isReleased) {
        return FailBringUp(function, line);
    }
    if (isError) {
        Say(function, line);
    }
    if (afterProbe_) {
        std::exchange(afterProbe_, nullptr)();
    }
    const bool isTarget = last_.name == "glGenFramebuffers";
    if (!isTarget && last_.name != "glGenTextures") {
        return;
    }
    const bool isNamed = !isAnswerNull_;
    if (isError) {  // a name that is there nevertheless serves this frame; the import is not kept
        FailImport(true, isNamed ? 1 : 0);
        if (isTarget) {
            Say("GetOutputFrameBuffer", "m_pfnglgenframebuffers failed");
        }
        if (!isNamed) {
            Fail(1);
        }
    } else if (!isNamed) {
        isNameless_[isTarget ? 1 : 0] = true;
    }
}

void Prediction::OnGl(const GlCall& call, const GlFault& fault, uint64_t answer) {
    if (call.name == "glGetError" || call.name == "eglGetError") {
        return OnProbe(call, answer);
    }
    beforeLast_ = last_.name;
    last_ = call;
    isAnswerNull_ = fault.isRefused;
    const bool isStatus = (call.name == "glGetShaderiv" || call.name == "glGetProgramiv") &&
                          call.words[1] != GL_INFO_LOG_LENGTH;
    if (step_ == Step::Create) {
        const bool isMade = answer != 0;
        if (call.name == "glCreateShader") {
            made_["latest shader"] = isMade ? 1 : 0;
            made_["shaders"] += isMade ? 1U : 0U;
        } else if (Begins(call.name, "glCreate") || Begins(call.name, "eglCreate")) {
            made_["objects"] += isMade ? 1U : 0U;
            made_["program"] = (call.name == "glCreateProgram" && isMade) ? 1 : 0;
        }
        if (call.name == "eglCreateContext" && answer == 0) {
            FailBringUp("CreateContext", "Unable to create EGL pContext");
        } else if (call.name == "eglCreatePbufferSurface" && answer == 0) {
            FailBringUp("CreateContext", "Unable to create EGL pSurface");
        } else if (call.name == "eglMakeCurrent" && call.words[1] != 0 && answer == 0) {
            FailBringUp("Initialize", "eglMakeCurrent failed with error code: 300*");
        } else if (isStatus && fault.isRefused && call.name == "glGetShaderiv") {
            const bool isVertex = made_["stages"] == 0;
            made_["shaders"] -= made_["latest shader"];  // the failed one is deleted
            Say("CreateShader", "Shader compilation status: 0");
            SayInfoLog("CreateShader", "Shader compilation failure");
            FailBringUp("LoadProgram",
                        isVertex ? "CreateShader vertexShader failed" : "CreateShader fragmentShader failed");
        } else if (isStatus && fault.isRefused) {
            made_["objects"] -= made_["program"];  // deleted; the shaders are not
            afterProbe_ = [this] {
                Say("CreateProgram", "Shader link status 0");
                SayInfoLog("CreateProgram", "Shader link status error");
                FailBringUp("LoadProgram", "CreateProgram program failed");
            };
        }
        if (isStatus && !fault.isRefused && call.name == "glGetProgramiv") {
            made_["shaders"] = 0;  // a linked program needs them no more
        }
        made_["stages"] += isStatus ? 1U : 0U;
    } else if (call.name == "eglCreateImageKHR" && answer == 0) {
        afterProbe_ = [this] {
            SayImport("Invalid Gralloc Handle * is used", "Invalid Gralloc Buffer handle * is used");
        };
        FailImport(false, 0);
        Fail(1);
    } else if (call.name == "glCheckFramebufferStatus" && answer != GL_FRAMEBUFFER_COMPLETE) {
        Say("DewarpImage", fmt::format("GL output FrameBuffer Error : (0x{:x})", answer));
    }
}
