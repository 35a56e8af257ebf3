#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>

#include "desk/clip/clip_format.h"
#include "desk/clip/ffmpeg.h"
#include "desk/clip/nv12.h"
#include "desk/clip/stream_copier.h"
#include "desk/output/output.h"

namespace desk {

/// How a clip is encoded. What is empty is as the kind of clip has it.
struct Encoding {
    std::string codec;       ///< FFmpeg's name of an encoder or a codec
    std::optional<int> crf;  ///< quality, the better the lower, on the encoder's own scale
};

struct ClipKind;

/// Writes a clip of the kind that its name asks for: .mp4 and .mov (H.264), .mkv (FFV1, lossless), .webm
/// (VP9), .y4m, - for y4m on stdout, and a folder of numbered PNGs for a name without extension. It appears
/// under its name when it is complete; until then it grows under a temporary name beside it, which is removed
/// when the writer goes before.
class ClipWriter {
public:
    /// `source` reads the clip that the frames are made of; what else that has comes with them, and what of
    /// it this clip does not hold is said on stderr. It may be null, and has to outlive the writer. Throws
    /// UsageError for a name that says no kind, an encoding that does not fit it, and when the clip exists
    /// and may not be overwritten; std::runtime_error when it cannot be made there.
    ClipWriter(const std::filesystem::path& clip, const ClipFormat& format, bool overwrite,
               const Encoding& encoding = {}, const ClipReader* source = nullptr);

    /// The next frame, of the format's size; without a time it follows the one before it. Throws
    /// std::runtime_error, for example when the disk is full.
    void Add(const Nv12& picture, std::optional<FrameTime> time = {});

    /// A packet of another stream of the source.
    void Take(const AVPacket& packet) {
        if (copier_) {
            copier_->Take(packet);
        }
    }

    /// Writes the clip's end, and nothing of the source's streams that begins after it when the source was
    /// not read to its own. Throws as Add does: what is encoded last may fill the disk.
    void Complete(bool isCutOff = false);
    /// Puts the complete clip under its name. Throws as Output does.
    void Publish();

private:
    const AVCodec* FindEncoder(const Encoding& encoding) const;
    void OpenEncoder(const AVCodec& encoder, const Encoding& encoding);
    void OpenContainer();
    void CopyOthers(int64_t end);
    void Send(const AVFrame* picture);
    void Require(int result, const std::string& action) const;

    const ClipKind& kind_;
    std::filesystem::path clip_;
    ClipFormat format_;
    std::optional<Output> output_;  ///< none for stdout
    AvOwned<AVCodecContext> codec_;
    AvOwned<AVFormatContext> container_;
    std::optional<StreamCopier> copier_;
    AVStream* stream_ = nullptr;
    AvOwned<AVFrame> frame_{av_frame_alloc()};
    AvOwned<AVPacket> packet_{av_packet_alloc()};
    FrameGraph graph_;
    FrameRange range_;                      ///< of the source
    int64_t begin_ = 0;                     ///< of what is written, microseconds of the source
    FrameTime last_;                        ///< of the frame that was added last
    std::map<int64_t, int64_t> durations_;  ///< of the frames in the encoder, by their times
    int64_t pictures_ = 0;
};

}  // namespace desk
