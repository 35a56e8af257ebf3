#include "tests/node/fakegl/fake_gl.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "node/dewarp/gpu/gpuapi.h"
#include "node/dewarp/gpu/gpuentrypoints.h"
#include "platform/nativewindowbuffer.h"

namespace {

int g_glesLibrary = 0;
int g_eglLibrary = 0;

template <typename T>
uint64_t WordOf(T value) {
    if constexpr (std::is_pointer_v<T>) {
        return reinterpret_cast<uint64_t>(value);
    } else {
        return static_cast<uint64_t>(value);
    }
}

template <typename T>
std::string TextOf(T value) {
    if constexpr (std::is_same_v<T, const char*>) {
        return fmt::format("\"{}\"", value);
    } else if constexpr (std::is_pointer_v<T>) {
        const uint64_t word = WordOf(value);
        return (word < 0x10000) ? fmt::format("{:#x}", word) : "ptr";
    } else if constexpr (std::is_floating_point_v<T>) {
        return fmt::format("{:g}", value);
    } else {
        return (value >= 0x100) ? fmt::format("{:#x}", value) : fmt::format("{}", +value);
    }
}

template <const char* Name, typename Function>
struct Trampoline;

/// The faked function itself: turns its arguments into words and a text, and the answer into its result.
template <const char* Name, typename Result, typename... Arguments>
struct Trampoline<Name, Result (*)(Arguments...)> {
    static Result Call(Arguments... arguments) {
        const std::vector<std::string> texts = {TextOf(arguments)...};
        GlCall call{Name, {WordOf(arguments)...}, fmt::format("{}({})", Name, fmt::join(texts, ", "))};
        const uint64_t answer = FakeGl::current->Perform(std::move(call));
        if constexpr (std::is_pointer_v<Result>) {
            return reinterpret_cast<Result>(answer);
        } else if constexpr (!std::is_void_v<Result>) {
            return static_cast<Result>(answer);
        }
    }
};

#define FAKE_NAME(member, symbol, ...) constexpr char Name_##symbol[] = #symbol;
DEWARP_GLES_ENTRIES(FAKE_NAME)
DEWARP_EGL_ENTRIES(FAKE_NAME)
#undef FAKE_NAME

const std::map<std::string, void*>& SymbolsOf(const void* library) {
#define FAKE_SYMBOL(member, symbol, ...) \
    {#symbol, reinterpret_cast<void*>(&Trampoline<Name_##symbol, decltype(&::symbol)>::Call)},
    static const std::map<std::string, void*> gles = {DEWARP_GLES_ENTRIES(FAKE_SYMBOL)};
    static const std::map<std::string, void*> egl = {DEWARP_EGL_ENTRIES(FAKE_SYMBOL)};
#undef FAKE_SYMBOL
    return (library == &g_glesLibrary) ? gles : egl;
}

template <typename T>
T* PointerOf(uint64_t word) {
    return reinterpret_cast<T*>(word);
}

bool IsEgl(const GlCall& call) {
    return call.name.rfind("egl", 0) == 0;
}

bool Begins(const GlCall& call, const char* head) {
    return call.name.rfind(head, 0) == 0;
}

}  // namespace

void* FakeGl::Map(const std::string& devicePath) {
    return (devicePath == "/system/lib64/libGLESv2.so") ? &g_glesLibrary
           : (devicePath == "/system/lib64/libEGL.so")  ? &g_eglLibrary
                                                        : nullptr;
}

void* FakeGl::Symbol(void* library, const char* symbol) {
    const auto& symbols = SymbolsOf(library);
    const auto found = symbols.find(symbol);
    return (found == symbols.end() || missingSymbols.count(symbol) != 0) ? nullptr : found->second;
}

std::vector<std::string> FakeGl::Take() {
    const std::lock_guard<std::recursive_mutex> lock(mutex_);
    return std::exchange(calls_, {});
}

uint32_t FakeGl::DropError() {
    return std::exchange(pendingGl_, 0U);
}

uint64_t FakeGl::Perform(GlCall call) {
    if (hold) {
        hold(call);
    }
    const std::lock_guard<std::recursive_mutex> lock(mutex_);
    calls_.push_back(call.text);
    const GlFault failure = fault ? fault(call) : GlFault{};
    if (IsEgl(call) && call.name != "eglGetError") {
        pendingEgl_ = EGL_SUCCESS;  // the flag tells of the last call only
    }
    if (failure.error != 0) {
        (IsEgl(call) ? pendingEgl_ : pendingGl_) = failure.error;
    }
    const uint64_t answer = AnswerTo(call, failure.isRefused);
    CountObjects(call, answer);
    if (watch) {
        watch(call, failure, answer);
    }
    return answer;
}

uint64_t FakeGl::AnswerTo(const GlCall& call, bool isRefused) {
    const bool isDone = !isRefused || Begins(call, "glDelete") || Begins(call, "eglDestroy");
    if (!isDone && (call.name == "glGetShaderiv" || call.name == "glGetProgramiv")) {
        *PointerOf<int>(call.words[2]) = 0;
    }
    const uint64_t answer = isDone ? Respond(call) : 0;
    return isRefused ? 0 : answer;
}

void FakeGl::CountObjects(const GlCall& call, uint64_t answer) {
    const bool isMade =
        Begins(call, "eglCreateContext") || Begins(call, "eglCreatePbuffer") || Begins(call, "glCreate");
    const bool isGone = Begins(call, "eglDestroyContext") || Begins(call, "eglDestroySurface") ||
                        Begins(call, "glDeleteShader") || Begins(call, "glDeleteProgram");
    liveObjects += (isMade && answer != 0) ? 1U : 0U;
    liveObjects -= (isGone && call.words.back() != 0) ? 1U : 0U;
}

uint64_t FakeGl::Respond(const GlCall& call) {
    static const std::map<std::string, uint64_t> constants = {
        {"eglGetDisplay", Display},
        {"eglGetCurrentDisplay", Display},
        {"eglQueryString", WordOf("Fake")},
        {"eglCreatePbufferSurface", Surface},
        {"glCreateProgram", 21},
        {"glCheckFramebufferStatus", GL_FRAMEBUFFER_COMPLETE},
        {"glGetUniformLocation", 3}};
    const std::string& name = call.name;
    if (const auto constant = constants.find(name); constant != constants.end()) {
        return constant->second;
    }
    if (name == "glGetError") {
        return DropError();
    }
    if (name == "eglGetError") {
        return std::exchange(pendingEgl_, uint32_t{EGL_SUCCESS});
    }
    if (name == "glCreateShader") {
        return call.words[0] == GL_VERTEX_SHADER ? 11 : 12;
    }
    if (name == "glGetAttribLocation") {
        return std::strcmp(PointerOf<const char>(call.words[1]), "inPosition") == 0 ? 4 : 5;
    }
    if (name == "eglCreateContext") {
        return call.words[1] != 0 ? Context : 0;
    }
    if (name == "eglCreateImageKHR") {
        buffers_[nextImage_] = call.words[3];
        HoldBuffer(nextImage_, true);
        return nextImage_++;
    }
    FillIn(call);
    return EGL_TRUE;
}

void FakeGl::HoldBuffer(uint64_t image, bool isHeld) {
    auto* buffer = PointerOf<ANativeWindowBuffer>(buffers_.at(image));
    (isHeld ? buffer->common.incRef : buffer->common.decRef)(&buffer->common);
    liveImages = isHeld ? liveImages + 1 : liveImages - 1;
}

void FakeGl::FillIn(const GlCall& call) {
    const std::string& name = call.name;
    if (name == "glGetShaderiv" || name == "glGetProgramiv") {
        const bool isLength = call.words[1] == GL_INFO_LOG_LENGTH;
        const auto length = static_cast<int>(infoLog.empty() ? 0 : infoLog.size() + 1);
        *PointerOf<int>(call.words[2]) = isLength ? length : 1;
    } else if (name == "glGetShaderInfoLog" || name == "glGetProgramInfoLog") {
        std::memcpy(PointerOf<char>(call.words[3]), infoLog.c_str(), infoLog.size() + 1);
    } else if (Begins(call, "glGen")) {
        *PointerOf<uint32_t>(call.words[1]) = nextName_++;
        ++liveNames;
    } else if (Begins(call, "glDelete") && call.words.size() == 2) {  // a list of names
        liveNames -= (*PointerOf<uint32_t>(call.words[1]) != 0) ? 1U : 0U;
    } else if (name == "eglInitialize") {
        *PointerOf<int>(call.words[1]) = 1;
        *PointerOf<int>(call.words[2]) = 5;
    } else if (name == "eglChooseConfig") {
        for (size_t i = 0; call.words[2] != 0 && i < configs.size() && i < call.words[3]; ++i) {
            PointerOf<uint64_t>(call.words[2])[i] = FirstConfig + i;
        }
        *PointerOf<int>(call.words[4]) = static_cast<int>(configs.size());
    } else if (name == "eglGetConfigAttrib") {
        constexpr uint64_t order[] = {EGL_RED_SIZE,   EGL_GREEN_SIZE,   EGL_BLUE_SIZE,      EGL_ALPHA_SIZE,
                                      EGL_DEPTH_SIZE, EGL_STENCIL_SIZE, EGL_SAMPLE_BUFFERS, EGL_SAMPLES};
        const auto at = std::find(std::begin(order), std::end(order), call.words[2]) - std::begin(order);
        *PointerOf<int>(call.words[3]) = configs.at(call.words[1] - FirstConfig).at(static_cast<size_t>(at));
    } else if (name == "eglDestroyImageKHR") {
        HoldBuffer(call.words[1], false);
        buffers_.erase(call.words[1]);
    }
}
