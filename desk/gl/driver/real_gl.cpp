#include "desk/gl/driver/real_gl.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>

namespace desk {

void* FindReal(const char* name) {
    // What comes next after this library are the machine's own, which it links.
    void* function = dlsym(RTLD_NEXT, name);
    if (function == nullptr) {  // an extension's; the layer has no eglGetProcAddress of its own
        function = reinterpret_cast<void*>(eglGetProcAddress(name));
    }
    if (function == nullptr) {
        static_cast<void>(std::fprintf(stderr, "desk-gl: expected %s in the machine's GL, got none\n", name));
        std::abort();
    }
    return function;
}

}  // namespace desk
