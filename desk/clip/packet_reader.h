#pragma once

#include <atomic>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "desk/clip/clip_format.h"
#include "desk/clip/ffmpeg.h"

namespace desk {

/// The packets of a clip's video stream, or the pictures of a folder; how many of them its file promises; and
/// whether FFmpeg complains about the clip, some of whose damage it patches up and tells only its log.
class PacketReader {
public:
    /// Throws UsageError, naming the file, when there is no clip with a video stream that can be decoded;
    /// std::runtime_error when it may not be read. The rate, in frames per second, is that of a folder; of
    /// any other clip it is its own.
    PacketReader(const std::filesystem::path& clip, double folderRate);

    /// A decoder of the stream. What it complains about from now on counts.
    AvOwned<AVCodecContext> OpenDecoder();

    /// As the frames are stored.
    const ClipFormat& Format() const {
        return format_;
    }
    const AVFormatContext& Container() const {
        return *container_;
    }
    AVStream& Stream() const {
        return *stream_;
    }
    /// Frames of the clip, as its header tells; 0 when it does not.
    int64_t ExpectedFrames() const;

    /// The next packet of the stream. False at the end of the file. Times begin with the clip, also where the
    /// container's clock does not.
    bool Next(AVPacket& packet);
    /// The packets of all other streams that were read since the last time. Until the stream reaches a time,
    /// in microseconds, more of the file is read for them, and its own packets are passed over.
    std::vector<AvOwned<AVPacket>> TakeOthers(int64_t until);
    /// Whether there was a complaint since the last time, whoever made it.
    bool TakeComplaint() {
        return hasComplained_.exchange(false);
    }

    struct Missing {
        std::string what;  ///< in words; empty when the clip is whole
        int64_t frames = 0;
    };
    /// What the clip lacks at the end of its file; nothing the second time.
    Missing TakeMissing() {
        return std::exchange(missing_, {});
    }

private:
    bool NextPicture(AVPacket& packet);
    void Count(const AVPacket& packet);
    void Rebase(AVPacket& packet) const;
    Missing FindMissing(int error);

    std::filesystem::path file_;
    std::vector<std::filesystem::path> pictures_;  ///< of a folder
    std::atomic<bool> hasComplained_ = false;      ///< set by FFmpeg's log
    AvOwned<AVFormatContext> container_;
    const AVCodec* codec_ = nullptr;
    AVStream* stream_ = nullptr;
    ClipFormat format_;
    std::vector<AvOwned<AVPacket>> others_;
    int64_t indexed_ = 0;  ///< packets; 0 when the file does not say
    double promised_ = 0;  ///< seconds; likewise
    int64_t packets_ = 0;
    int64_t end_ = 0;     ///< of the last packet, in bytes of the file
    double reached_ = 0;  ///< seconds, the end of the last frame in time
    bool hasEnded_ = false;
    Missing missing_;
};

}  // namespace desk
