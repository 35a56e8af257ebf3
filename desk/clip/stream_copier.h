#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "desk/clip/clip_reader.h"
#include "desk/clip/ffmpeg.h"

namespace desk {

/// What a clip is made of.
struct ClipSource {
    std::filesystem::path clip;
    FrameRange frames;
    Orientation orientation = Orientation::Stored;
};

/// Copies what a clip has beside its pictures, unchanged, into the container of one that is made of it: the
/// other streams, chapters and tags, and what is said of the pictures.
class StreamCopier {
public:
    /// Adds streams to a container without any, before its header is written. Throws as OpenContainer does.
    StreamCopier(const ClipSource& source, AVFormatContext& container);

    /// The stream for the pictures that are made, without its format.
    AVStream& Pictures() const {
        return *pictures_;
    }
    /// What does not come with the pictures, in words, of a kind of clip that has times of frames and other
    /// streams or not, and can tell how pictures are to be turned or not. Nothing is copied afterwards when it
    /// has no times.
    std::string Losses(bool isTimed, bool isTurned);

    /// Takes this time of the source, in microseconds, for the beginning.
    void CutBefore(int64_t time) {
        begin_ = time;
    }
    /// Writes what belongs before a time of the source, in microseconds. Returns FFmpeg's code.
    int CopyUntil(int64_t time);
    /// Writes what is left, but nothing that begins at the end or later, and chapters. Returns FFmpeg's code.
    int Finish(std::optional<int64_t> end);

private:
    void AddStream(AVStream& from);
    bool HasUnevenTimes();
    bool ReadPacket();
    int WritePacket();

    ClipSource source_;
    AvOwned<AVFormatContext> from_;
    AVStream* sourcePictures_ = nullptr;
    AVFormatContext& to_;
    AVStream* pictures_ = nullptr;
    std::vector<AVStream*> copies_;    ///< by the stream's index in the source; null for those that are not copied
    std::vector<int64_t> lastTimes_;   ///< of decoding, by the same index
    std::vector<std::string> leftOut_;
    AvOwned<AVPacket> packet_{av_packet_alloc()};
    bool isPending_ = false;  ///< a packet is read and belongs to later
    int64_t origin_;
    int64_t begin_ = 0;
};

}  // namespace desk
