#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <opencv2/core.hpp>
#include <vector>

#include "desk/clip/frame_range.h"
#include "desk/clip/nv12.h"

namespace desk {

/// What a clip's frames are, apart from their pixels.
struct ClipFormat {
    cv::Size size;
    int rateNumerator = 30;  ///< frames per second, as a fraction
    int rateDenominator = 1;
    bool fullRange = true;  ///< whether luma goes from 0 to 255 or from 16 to 235
    int matrix = 5;         ///< H.273's number of the matrix coefficients; 5 is BT.601

    double FramesPerSecond() const {
        return static_cast<double>(rateNumerator) / rateDenominator;
    }
};

/// What a clip's damage does to the run: it ends, or the damaged frames are left out.
enum class OnDamage { Stop, Skip };

/// Reads the frames of a clip: any file that FFmpeg reads, or a folder of pictures numbered from 1
/// (000001.png, ...). The same clip gives the same frames, and the same damage, every time. Readers may work
/// on threads of their own.
class ClipReader {
public:
    /// Throws UsageError, naming the file, when there is no clip with a video stream.
    ClipReader(const std::filesystem::path& clip, const FrameRange& frames,
               OnDamage onDamage = OnDamage::Stop);
    ~ClipReader();
    ClipReader(const ClipReader&) = delete;
    ClipReader& operator=(const ClipReader&) = delete;

    const ClipFormat& Format() const;
    /// Frames in the range, as the file's header tells; 0 when it does not.
    int64_t ExpectedFrames() const;
    /// The number in the clip, from 0, of the frame that Read returned last.
    int64_t Frame() const;
    /// What was skipped so far, in order: the damaged frames, and those up to the next that needs no other
    /// one.
    const std::vector<FrameRange>& DamagedFrames() const;

    /// Fills the picture with the next frame: scaled, when sizes differ, until it just covers the picture,
    /// what is too much cut off evenly on both sides. False at the end of the range or the clip. Throws
    /// UsageError, naming the file, when the clip has no frame in the range, and, with the number of the
    /// first frame that cannot be trusted, when it is damaged and damage is not skipped.
    bool Read(Nv12& picture);

private:
    struct Decoder;
    std::unique_ptr<Decoder> decoder_;
};

}  // namespace desk
