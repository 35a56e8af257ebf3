#include "tests/node/fakegl/fake_gl.h"

#include <fmt/format.h>

#include <cstring>
#include <utility>

#include "node/dewarp/gpu/gpuapi.h"
#include "node/dewarp/gpu/gpuentrypoints.h"
#include "platform/nativewindowbuffer.h"

namespace {

FakeGl* g_current = nullptr;
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

template <typename Name, typename Function>
struct Trampoline;

/// The faked function itself: turns its arguments into words and a text, and the answer into its result.
template <typename Name, typename Result, typename... Arguments>
struct Trampoline<Name, Result (*)(Arguments...)> {
    static Result Call(Arguments... arguments) {
        const std::vector<std::string> texts = {TextOf(arguments)...};
        GlCall call{
            Name::value, {WordOf(arguments)...}, fmt::format("{}({})", Name::value, fmt::join(texts, ", "))};
        const uint64_t answer = FakeGl::Current()->Perform(std::move(call));
        if constexpr (std::is_pointer_v<Result>) {
            return reinterpret_cast<Result>(answer);
        } else if constexpr (!std::is_void_v<Result>) {
            return static_cast<Result>(answer);
        }
    }
};

#define FAKE_NAME(member, symbol, ...)                \
    struct Name_##symbol {                            \
        static constexpr const char* value = #symbol; \
    };
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

}  // namespace

FakeGl::FakeGl() {
    g_current = this;
}

FakeGl::~FakeGl() {
    g_current = nullptr;
}

FakeGl* FakeGl::Current() {
    return g_current;
}

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

bool FakeGl::Unmap(void* /*library*/) {
    return true;
}

std::vector<std::string> FakeGl::Take() {
    const std::lock_guard<std::recursive_mutex> lock(mutex_);
    return std::exchange(calls_, {});
}

void FakeGl::RaiseAfter(const std::string& name, uint32_t error) {
    errors_[name] = error;
}

void FakeGl::Behave() {
    errors_.clear();
}

uint32_t FakeGl::DropError() {
    return std::exchange(pendingGl_, 0U);
}

namespace {

bool IsEgl(const GlCall& call) {
    return call.name.rfind("egl", 0) == 0;
}

bool Begins(const GlCall& call, const char* head) {
    return call.name.rfind(head, 0) == 0;
}

}  // namespace

uint64_t FakeGl::Perform(GlCall call) {
    if (hold) {
        hold(call);
    }
    const std::lock_guard<std::recursive_mutex> lock(mutex_);
    calls_.push_back(call.text);
    GlFault failure = fault ? fault(call) : GlFault{};
    if (const auto error = errors_.find(call.name); error != errors_.end()) {
        failure.error = error->second;
        errors_.erase(error);
    }
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
    const uint64_t answer = !isDone ? 0 : IsEgl(call) ? RespondEgl(call) : Respond(call);
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

uint64_t FakeGl::TakeError(uint32_t& pending, uint32_t none) {
    return std::exchange(pending, none);
}

void FakeGl::Generate(const GlCall& call) {
    *PointerOf<uint32_t>(call.words[1]) = nextName_++;
    ++liveNames;
}

uint64_t FakeGl::Respond(const GlCall& call) {
    const std::string& name = call.name;
    if (name == "glGetError") {
        return TakeError(pendingGl_, 0);
    }
    if (name == "glCreateShader") {
        return call.words[0] == GL_VERTEX_SHADER ? 11 : 12;
    }
    if (name == "glCreateProgram") {
        return 21;
    }
    if (name == "glGetShaderiv" || name == "glGetProgramiv") {
        const bool isLength = call.words[1] == GL_INFO_LOG_LENGTH;
        *PointerOf<int>(call.words[2]) = !isLength         ? 1
                                         : infoLog.empty() ? 0
                                                           : static_cast<int>(infoLog.size() + 1);
    } else if (name == "glGetShaderInfoLog" || name == "glGetProgramInfoLog") {
        std::memcpy(PointerOf<char>(call.words[3]), infoLog.c_str(), infoLog.size() + 1);
    } else if (name == "glGetAttribLocation") {
        return std::string(PointerOf<const char>(call.words[1])) == "inPosition" ? 4 : 5;
    } else if (name == "glGetUniformLocation") {
        return 3;
    } else if (name == "glCheckFramebufferStatus") {
        return GL_FRAMEBUFFER_COMPLETE;
    } else if (name.rfind("glGen", 0) == 0) {
        Generate(call);
    } else if (name == "glDeleteTextures" || name == "glDeleteBuffers" || name == "glDeleteFramebuffers" ||
               name == "glDeleteRenderbuffers") {
        liveNames -= (*PointerOf<uint32_t>(call.words[1]) != 0) ? 1U : 0U;
    }
    return 0;
}

uint64_t FakeGl::RespondEgl(const GlCall& call) {
    const std::string& name = call.name;
    if (name == "eglGetError") {
        return TakeError(pendingEgl_, EGL_SUCCESS);
    }
    if (name == "eglGetDisplay" || name == "eglGetCurrentDisplay") {
        return Display;
    }
    if (name == "eglInitialize") {
        *PointerOf<int>(call.words[1]) = 1;
        *PointerOf<int>(call.words[2]) = 5;
    } else if (name == "eglQueryString") {
        return WordOf("Fake");
    } else if (name == "eglCreateContext") {
        return call.words[1] != 0 ? Context : 0;
    } else if (name == "eglCreatePbufferSurface") {
        return Surface;
    } else if (name == "eglChooseConfig") {
        for (size_t i = 0; call.words[2] != 0 && i < configs.size() && i < call.words[3]; ++i) {
            PointerOf<uint64_t>(call.words[2])[i] = FirstConfig + i;
        }
        *PointerOf<int>(call.words[4]) = static_cast<int>(configs.size());
    } else if (name == "eglGetConfigAttrib") {
        static const std::vector<uint64_t> order = {EGL_RED_SIZE,       EGL_GREEN_SIZE, EGL_BLUE_SIZE,
                                                    EGL_ALPHA_SIZE,     EGL_DEPTH_SIZE, EGL_STENCIL_SIZE,
                                                    EGL_SAMPLE_BUFFERS, EGL_SAMPLES};
        for (size_t i = 0; i < order.size(); ++i) {
            if (order[i] == call.words[2]) {
                *PointerOf<int>(call.words[3]) = configs.at(call.words[1] - FirstConfig).at(i);
            }
        }
    } else if (name == "eglCreateImageKHR") {
        auto* buffer = PointerOf<ANativeWindowBuffer>(call.words[3]);
        buffer->common.incRef(&buffer->common);
        buffers_[nextImage_] = call.words[3];
        ++liveImages;
        return nextImage_++;
    } else if (name == "eglDestroyImageKHR") {
        auto* buffer = PointerOf<ANativeWindowBuffer>(buffers_.at(call.words[1]));
        buffer->common.decRef(&buffer->common);
        buffers_.erase(call.words[1]);
        --liveImages;
    }
    return EGL_TRUE;
}
