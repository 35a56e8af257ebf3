#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "desk/host/services/libraries.h"

/// One call of a faked EGL or OpenGL ES entry point.
struct GlCall {
    std::string name;
    std::vector<uint64_t> words;  ///< the arguments, pointers and integers as they are
    std::string text;             ///< "glViewport(0, 0, 1920, 1080)"; pointers other than handles as "ptr"
};

/// What a fault does to one call.
struct GlFault {
    uint32_t error = 0;      ///< raised as the call's error flag; 0 for none
    bool isRefused = false;  ///< nothing is made, the status is false, the result 0; what deletes still does
};

/// EGL and OpenGL ES that draw nothing: every entry point of the engine's lists, recorded and answered as a
/// well-behaved driver would, unless a test says otherwise. One at a time in a process; thread safe.
class FakeGl : public desk::LibraryProvider {
public:
    FakeGl() {
        current = this;
    }
    ~FakeGl() override {
        current = nullptr;
    }

    void* Map(const std::string& devicePath) override;
    void* Symbol(void* library, const char* symbol) override;
    bool Unmap(void* /*library*/) override {
        return true;
    }

    /// The calls since the last time, as texts.
    std::vector<std::string> Take();

    /// Told of every call first, on the caller's thread and with nothing locked, so that it may hold the call
    /// up; may be empty.
    std::function<void(const GlCall&)> hold;
    /// Asked before every call is answered; may be empty.
    std::function<GlFault(const GlCall&)> fault;
    /// Told of every call and its answer; may be empty.
    std::function<void(const GlCall&, const GlFault&, uint64_t answer)> watch;
    /// Forgets the GL error flag, as when another context becomes current. Returns what it was.
    uint32_t DropError();

    std::set<std::string> missingSymbols;
    std::string infoLog;  ///< of shaders and programs
    /// Configs that eglChooseConfig offers: red, green, blue, alpha, depth, stencil, sample buffers, samples.
    std::vector<std::vector<int>> configs = {{8, 8, 8, 8, 24, 8, 0, 0}};

    /// Handles that the fake gives out.
    static constexpr uint64_t Display = 0xd1;
    static constexpr uint64_t Context = 0xc0;
    static constexpr uint64_t Surface = 0x5f;
    static constexpr uint64_t FirstConfig = 0xcf00;
    static constexpr uint64_t FirstImage = 0x1a00;

    static inline FakeGl* current = nullptr;
    uint64_t Perform(GlCall call);

    size_t liveImages = 0;
    size_t liveNames = 0;    ///< textures, buffers, framebuffers, renderbuffers
    size_t liveObjects = 0;  ///< contexts, surfaces, shaders, programs

private:
    uint64_t AnswerTo(const GlCall& call, bool isRefused);
    void CountObjects(const GlCall& call, uint64_t answer);
    uint64_t Respond(const GlCall& call);
    void FillIn(const GlCall& call);
    void HoldBuffer(uint64_t image, bool isHeld);

    std::recursive_mutex mutex_;
    std::vector<std::string> calls_;
    uint32_t pendingGl_ = 0;
    uint32_t pendingEgl_ = 0x3000;
    uint32_t nextName_ = 100;
    uint64_t nextImage_ = FirstImage;
    std::map<uint64_t, uint64_t> buffers_;  // image to its native window buffer
};
