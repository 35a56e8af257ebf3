#pragma once

#include <cstdint>

// What the desk's GL libraries tell the host. Plain C, so that a host can look the functions up by name and
// needs nothing else of the libraries.
extern "C" {

/// What the libraries hold and have done, for the host's accounting.
struct DeskGlCounters {
    uint64_t imports;              ///< window buffers made into EGL images, since the start
    uint64_t liveImages;           ///< EGL images of window buffers that someone still owns
    uint64_t initialisedDisplays;  ///< displays with more initialisations than terminations
    uint64_t liveContexts;         ///< contexts not destroyed, or destroyed and still current somewhere
    uint64_t contextCurrent;       ///< 1 when the calling thread has a context current, else 0
    int32_t maxTextureSize;        ///< pixels each way; 0 until a context has been current
    char renderer[128];            ///< the driver's name for itself, zero-terminated; empty until then
    char version[128];             ///< of the GL, in the driver's words, likewise
};

/// Fills all fields; each is exact by itself, but other threads may move on between two of them.
void desk_gl_counters(DeskGlCounters* counters);

/// Takes the driver's words about an error, which are the callee's for the time of the call only. Called on
/// the thread whose GL call was in error, and by one thread at a time; it must make no GL call.
typedef void (*DeskGlErrorSink)(void* owner, const char* text);

/// Has `sink` called with `owner` for every error that the driver under the desk's GL libraries reports, in
/// any context of the process, in place of any sink before. Null for none; once this returns the former sink
/// is not running and is not called again.
void desk_gl_set_error_sink(DeskGlErrorSink sink, void* owner);
}
