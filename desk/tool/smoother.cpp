#include "desk/tool/smoother.h"

#include <algorithm>
#include <cmath>

namespace desk {

Smoother::Smoother(Variant variant, int64_t window, const CameraPath& path, const SteadyView& view)
    : variant_(variant), window_(window), path_(path), view_(view) {}

CameraPlace Smoother::Next() {
    const int64_t frame = frame_++;
    const CameraPlace wanted = variant_ == Variant::LookAhead ? path_.Smooth(frame, window_) : Follow(frame);
    last_ = view_.Inside(frame, wanted);
    return *last_;
}

CameraPlace Smoother::Follow(int64_t frame) const {
    constexpr double SlowestGain = 0.015;
    constexpr double Reluctance = 4;
    const CameraPlace& shaky = path_.At(frame);
    if (!last_) {
        return shaky;
    }
    const double share = std::min(view_.MarginShare(frame, *last_), 1.0);
    const double gain = SlowestGain + (1 - SlowestGain) * std::pow(share, Reluctance);
    return (1 - gain) * *last_ + gain * shaky;
}

}  // namespace desk
