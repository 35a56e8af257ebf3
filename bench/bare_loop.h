#pragma once

#include <memory>
#include <string>

#include "bench/picture.h"

namespace bench {

/// The warp written straight to the machine's GL: two uploads, two draws of the mesh, two reads a frame, with
/// neither node nor desk between. Uses the context of its own, which is current only inside of Frame.
class BareLoop {
public:
    /// Throws std::runtime_error when the machine's GL gives no context.
    BareLoop(int width, int height);
    ~BareLoop();
    BareLoop(const BareLoop&) = delete;
    BareLoop& operator=(const BareLoop&) = delete;

    void Frame(const Picture& input, const IPEICAGridTransform& grid, Picture& output);
    /// What the GL calls itself.
    std::string Renderer() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace bench
