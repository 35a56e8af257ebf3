#include <fmt/format.h>

#include <stdexcept>

#include "desk/clip/av_handles.h"

extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/pixdesc.h>
}

namespace desk {

void AvScaler::Convert(const Side& from, const uint8_t* const* fromData, const int* fromStride,
                       const Side& to, uint8_t* const* toData, const int* toStride, int matrix) {
    if (from.format == to.format && from.width == to.width && from.height == to.height) {
        // The scaler leaves the chroma of NV12 out when it has nothing to convert.
        av_image_copy(const_cast<uint8_t**>(toData), const_cast<int*>(toStride),
                      const_cast<const uint8_t**>(fromData), fromStride, from.format, from.width,
                      from.height);
        return;
    }
    scaler_.reset(sws_getCachedContext(scaler_.release(), from.width, from.height, from.format, to.width,
                                       to.height, to.format, SWS_BICUBIC | SWS_ACCURATE_RND, nullptr, nullptr,
                                       nullptr));
    if (!scaler_) {
        throw std::runtime_error(fmt::format("pictures of {} x {} in {} cannot be made {} x {} in {}",
                                             from.width, from.height, av_get_pix_fmt_name(from.format),
                                             to.width, to.height, av_get_pix_fmt_name(to.format)));
    }
    constexpr int Unchanged = 1 << 16;
    const int* coefficients = sws_getCoefficients(matrix);
    sws_setColorspaceDetails(scaler_.get(), coefficients, from.fullRange ? 1 : 0, coefficients,
                             to.fullRange ? 1 : 0, 0, Unchanged, Unchanged);
    sws_scale(scaler_.get(), fromData, fromStride, 0, from.height, toData, toStride);
}

}  // namespace desk
