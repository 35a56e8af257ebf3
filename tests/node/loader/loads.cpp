// loads NODE [LIBRARY]: loads the node library as a host does and calls through it into the host's symbols,
// after LIBRARY where one is named. Prints "loads", or why it does not.
#include <dlfcn.h>

#include <cstdio>
#include <cstring>

#include "host/lumnode.h"

namespace {

const char* LoadAndCall(const char* node, const char* library) {
    if (library != nullptr && ::dlopen(library, RTLD_NOW | RTLD_GLOBAL) == nullptr) {
        return ::dlerror();
    }
    void* const handle = ::dlopen(node, RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        return ::dlerror();
    }
    LumNodeCallbacks callbacks = {};
    callbacks.size = sizeof(callbacks);
    reinterpret_cast<decltype(&LumNodeEntry)>(::dlsym(handle, "LumNodeEntry"))(&callbacks);
    LumNodeInterface services = {};
    services.size = sizeof(services);
    if (callbacks.SetNodeInterface(&services) != 0) {
        return "does not take the host's services";
    }
    return "loads";
}

}  // namespace

int main(int count, char** arguments) {
    if (count < 2) {
        static_cast<void>(std::fputs("expected NODE [LIBRARY]\n", stderr));
        return 2;
    }
    const char* result = LoadAndCall(arguments[1], count > 2 ? arguments[2] : nullptr);
    static_cast<void>(std::puts(result));
    return std::strcmp(result, "loads") == 0 ? 0 : 1;
}
