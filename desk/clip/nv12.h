#pragma once

#include <cstddef>
#include <cstdint>
#include <opencv2/core.hpp>

namespace desk {

/// An NV12 picture of even width and height: 8-bit luma (CV_8UC1) and, at half size each way, interleaved
/// Cb and Cr (CV_8UC2), each standing for the centre of its four luma pixels. ClipFormat tells their range
/// and matrix. The planes are Mat headers: the picture owns its pixels when made from a size, and lies in
/// somebody's buffer, which has to outlive it, when made from pointers.
struct Nv12 {
    explicit Nv12(cv::Size size);
    Nv12(cv::Size size, uint8_t* lumaPlane, uint8_t* chromaPlane, size_t strideBytes);

    cv::Mat luma;
    cv::Mat chroma;
};

/// Converts an 8-bit BGR picture of the same size into the planes, as BT.601 of full range. Bytes between
/// width and stride stay.
void WriteNv12(const cv::Mat& bgr, Nv12& picture);

/// The picture, taken for BT.601 of full range, as 8-bit BGR.
cv::Mat ReadNv12(const Nv12& picture);

/// The middle of a picture; the size is even and no larger than the picture.
Nv12 Middle(const Nv12& picture, cv::Size size);

}  // namespace desk
