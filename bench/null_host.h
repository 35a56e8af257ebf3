#pragma once

#include <cstdint>
#include <vector>

#include "host/lumnode.h"

/// A host that does next to nothing, over an EGL and OpenGL ES whose every entry point returns at once: what
/// is measured through it is the library's own work. The library is the built one, loaded as a host loads it.
namespace bench {

struct NodeSetup {
    uint32_t width = 1920;  ///< of input and output, pixels
    uint32_t height = 1080;
    uint32_t buffers = 1;    ///< per direction, used in turn
    bool isGridUsed = true;  ///< false: the grid is disabled, the node renders unity
    bool isDumped = false;   ///< dump files on; they go to /dev/null
};

/// The grid that every node is given: a smooth warp of a few pixels.
const IPEICAGridTransform& Grid();

/// The address of a null entry point, by its EGL or OpenGL ES name; null when the engine has no such name.
void* NullGlSymbol(const char* name);

/// One node of the library and the records of its requests. Throws std::runtime_error when the library
/// refuses.
class NullNode {
public:
    /// `nodeLibrary` is loaded once in a process, and stays.
    NullNode(const char* nodeLibrary, const NodeSetup& setup);
    ~NullNode();
    NullNode(const NullNode&) = delete;
    NullNode& operator=(const NullNode&) = delete;

    /// Both passes of the next request, as a host makes them.
    void Frame() {
        FirstPass();
        SecondPass();
    }
    void FirstPass();
    void SecondPass();
    /// The buffers of the next request are ones that the node has not seen.
    void ReplaceBuffers();

private:
    void Call();

    const LumNodeCallbacks& callbacks_;
    void* handle_ = nullptr;
    IPEICAGridTransform grid_ = Grid();
    LumDependencyInfo dependency_ = {};
    LumImageList* input_ = nullptr;
    LumImageList* output_ = nullptr;
    LumNodeProcessRequestInfo request_ = {};
    std::vector<LumImageList> inputs_;
    std::vector<LumImageList> outputs_;
    size_t next_ = 0;
};

}  // namespace bench
