#include "desk/gl/driver/counters.h"

#include <algorithm>

#include "desk/abi/gl_counters.h"
#include "desk/gl/driver/export.h"
#include "desk/gl/yuv/context_state.h"

namespace desk {

Counters& GlobalCounters() {
    static Counters counters;
    return counters;
}

}  // namespace desk

DESK_GL_EXPORT void desk_gl_counters(DeskGlCounters* counters) {
    const desk::Counters& global = desk::GlobalCounters();
    counters->liveImages = global.liveImages;
    counters->imports = global.imports;
    counters->liveTextures = global.liveTextures;
    counters->liveRenderTargets = global.liveRenderTargets;
    counters->initialisedDisplays = global.initialisedDisplays;
    counters->liveContexts = global.liveContexts;
    counters->contextCurrent = desk::CurrentContext() != nullptr ? 1 : 0;
    counters->uploads = global.uploads;
    counters->readbacks = global.readbacks;
    counters->maxTextureSize = global.maxTextureSize;
    if (counters->maxTextureSize != 0) {
        std::copy(global.renderer.begin(), global.renderer.end(), counters->renderer);
    }
}
