#pragma once

#include <cstdint>
#include <optional>

#include "desk/host/host_types.h"
#include "desk/tool/camera_path.h"
#include "desk/tool/steady_view.h"

namespace desk {

/// Where the steady camera looks, frame by frame.
/// Real time: it follows the shaky one slowly, the faster the more of the margin is used, and knows no frame
/// that is still to come. Look-ahead: it goes along the mean of the frames around.
class Smoother {
public:
    /// `window` is the number of frames ahead, 0 in real time. Path and view must outlive this.
    Smoother(Variant variant, int64_t window, const CameraPath& path, const SteadyView& view);

    /// The place for the next frame, whose window has been added to the path; all that is seen from it lies
    /// in the input.
    CameraPlace Next();

private:
    CameraPlace Follow(int64_t frame) const;

    Variant variant_;
    int64_t window_;
    const CameraPath& path_;
    const SteadyView& view_;
    int64_t frame_ = 0;
    std::optional<CameraPlace> last_;
};

}  // namespace desk
