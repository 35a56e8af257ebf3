#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "desk/clip/clip_reader.h"
#include "desk/clip/ffmpeg.h"

namespace desk {

/// Copies what a clip has beside its pictures, unchanged, into the container of one that is made of it: the
/// other streams, chapters and tags, and what is said of the pictures. Times are microseconds of the source.
class StreamCopier {
public:
    /// Adds streams to a container without any. The source has to outlive this.
    StreamCopier(const ClipReader& source, AVFormatContext& container);

    /// The stream for the pictures that are made, without its format.
    AVStream& Pictures() const {
        return *to_.streams[source_.Packets().Stream().index - missing_];
    }
    /// What does not come with the pictures, in words, of a kind of clip that has times of frames or not, and
    /// can tell how pictures are to be turned or not.
    std::string Losses(bool isTimed, bool isTurned) const;

    /// Takes a packet of another stream.
    void Take(const AVPacket& packet) {
        waiting_.emplace_back(av_packet_clone(&packet));
    }
    /// Writes those packets that belong into the time from `begin`, which becomes zero, to `end`. Returns
    /// FFmpeg's code.
    int Write(int64_t begin, int64_t end);
    void AddChapters(int64_t begin, int64_t end);

private:
    void AddStream(AVStream& from);

    const ClipReader& source_;
    AVFormatContext& to_;
    std::vector<AVStream*> copies_;   ///< by the stream's index in the source; null for what is not copied
    std::vector<int64_t> lastTimes_;  ///< of decoding, by the same index
    bool hasTags_ = false;
    int missing_ = 0;  ///< streams before the pictures that are not copied
    std::vector<std::string> leftOut_;
    std::deque<AvOwned<AVPacket>> waiting_;
};

}  // namespace desk
