#pragma once

#include <cstdint>
#include <deque>
#include <limits>
#include <string>
#include <vector>

#include "desk/clip/clip_reader.h"
#include "desk/clip/ffmpeg.h"

namespace desk {

/// Copies what a clip has beside its pictures, unchanged, into the container of one that is made of it: the
/// other streams, chapters and tags, and what is said of the pictures. Times are microseconds of the source.
class StreamCopier {
public:
    /// Adds streams to a container without any, which has times of frames or not, and can tell how pictures
    /// are to be turned or not. The source has to outlive this.
    StreamCopier(const ClipReader& source, AVFormatContext& container, bool isTimed, bool isTurned);

    /// The stream for the pictures that are made, without its format.
    AVStream* Pictures() const {
        return pictures_;
    }
    /// What does not come with the pictures, in words.
    const std::vector<std::string>& Losses() const {
        return losses_;
    }

    /// Takes a packet of another stream.
    void Take(const AVPacket& packet);
    /// Writes those packets that belong into the time from `begin`, which becomes zero, to `end`. Returns
    /// FFmpeg's code.
    int Write(int64_t begin, int64_t end);
    void AddChapters(int64_t begin, int64_t end);

private:
    /// Of a stream of the source.
    struct Copy {
        AVStream* stream = nullptr;                              ///< null for what is not copied
        int64_t lastTime = std::numeric_limits<int64_t>::min();  ///< of decoding
    };
    AVStream* AddStream(const AVStream& from);

    const ClipReader& source_;
    AVFormatContext& to_;
    AVStream* pictures_ = nullptr;
    std::vector<Copy> copies_;  ///< by the stream's index in the source
    std::vector<std::string> losses_;
    std::deque<AvOwned<AVPacket>> waiting_;
};

}  // namespace desk
