#pragma once

#include <stdint.h>

/// What the desk's GL libraries hold and have done, for the host's accounting. Plain C, so that a host can
/// look the function up by name and needs nothing else of the libraries.
struct DeskGlCounters {
    uint64_t liveImages;           ///< EGL images of window buffers that someone still owns
    uint64_t imports;              ///< EGL images made of window buffers, since the start
    uint64_t liveTextures;         ///< external textures made from an image
    uint64_t liveRenderTargets;    ///< renderbuffers made from an image
    uint64_t initialisedDisplays;  ///< displays with more initialisations than terminations
    uint64_t liveContexts;         ///< contexts not destroyed, or destroyed and still current somewhere
    uint64_t contextCurrent;       ///< 1 when the calling thread has a context current, else 0
    uint64_t uploads;              ///< frames copied from a buffer's memory to its planes, since the start
    uint64_t readbacks;            ///< frames copied from the planes to a buffer's memory, since the start
    int32_t maxTextureSize;        ///< pixels each way; 0 until a context has been current
    char renderer[128];            ///< the driver's name for itself, zero-terminated; empty until then
};

#ifdef __cplusplus
extern "C" {
#endif

/// Fills all fields; each is exact by itself, but other threads may move on between two of them.
void desk_gl_counters(struct DeskGlCounters* counters);

#ifdef __cplusplus
}
#endif
