#pragma once

#include <filesystem>

#include "desk/clip/clip_format.h"
#include "desk/clip/ffmpeg.h"
#include "desk/clip/nv12.h"
#include "desk/output/output.h"

namespace desk {

/// Writes a clip of the kind that its name asks for: .mp4 (H.264), .mkv (FFV1, lossless), .y4m, and a folder
/// of numbered PNGs for a name without extension. It appears under its name when it is complete; until then
/// it grows under a temporary name beside it, which is removed when the writer goes before.
class ClipWriter {
public:
    /// Throws UsageError for a name that says no kind, and when the clip exists and may not be overwritten;
    /// std::runtime_error when it cannot be made there.
    ClipWriter(const std::filesystem::path& clip, const ClipFormat& format, bool overwrite);

    /// The next frame, of the format's size. Throws std::runtime_error, for example when the disk is full.
    void Add(const Nv12& picture);

    /// Writes the clip's end. Throws as Add does: what is encoded last may fill the disk.
    void Complete();
    /// Puts the complete clip under its name. Throws as Output does.
    void Publish() {
        output_.Publish();
    }

private:
    struct Kind;
    static const Kind& KindOf(const std::filesystem::path& clip);

    void OpenEncoder();
    void OpenContainer();
    void Send(const AVFrame* picture);
    void Write();
    void WritePicture();
    void Require(int result, const char* action) const;

    const Kind& kind_;
    ClipFormat format_;
    Output output_;
    AvOwned<AVCodecContext> codec_;
    AvOwned<AVFormatContext> container_;  ///< null for pictures
    AvOwned<AVFrame> frame_{av_frame_alloc()};
    AvOwned<AVPacket> packet_{av_packet_alloc()};
    AvScaler scaler_;
    int64_t pictures_ = 0;
};

}  // namespace desk
