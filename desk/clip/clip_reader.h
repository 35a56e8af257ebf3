#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "desk/clip/clip_format.h"
#include "desk/clip/ffmpeg.h"
#include "desk/clip/nv12.h"
#include "desk/clip/packet_reader.h"

namespace desk {

/// What a clip's damage does to the run: it ends, or the damaged frames are left out.
enum class OnDamage { Stop, Skip };

/// Whether frames are taken as they stand in the file, or turned as they are to be seen: a phone that is held
/// upright films lying down.
enum class Orientation { Stored, Upright };

/// Reads the frames of a clip: any file that FFmpeg reads, - for stdin, or a folder of pictures in their
/// natural order. The same clip gives the same frames, and the same damage, every time. Readers may work on
/// threads of their own.
class ClipReader {
public:
    /// Frames per second of a folder.
    static constexpr double UsualRate = 30;

    /// Throws UsageError, naming the file, when there is no clip with a video stream; std::runtime_error when
    /// it may not be read.
    ClipReader(const std::filesystem::path& clip, const FrameRange& frames,
               OnDamage onDamage = OnDamage::Stop, Orientation orientation = Orientation::Stored,
               double folderRate = UsualRate);

    /// As the frames are taken.
    const ClipFormat& Format() const {
        return format_;
    }
    /// Says on stderr what pictures of this size do not keep of the clip's.
    void TellLosses(cv::Size size) const;
    /// Frames in the range, as the file's header tells; 0 when it does not.
    int64_t ExpectedFrames() const;
    /// The number in the clip, from 0, of the frame that Read returned last.
    int64_t Frame() const {
        return next_ - 1;
    }
    /// Its time.
    const FrameTime& Time() const {
        return time_;
    }
    /// The packets of the clip's other streams that were read since the last time, and when the last frame of
    /// a range was read, those up to its end.
    std::vector<AvOwned<AVPacket>> TakeOthers();
    const PacketReader& Packets() const {
        return packets_;
    }
    const FrameRange& Frames() const {
        return frames_;
    }
    Orientation Taken() const {
        return orientation_;
    }
    /// What was skipped so far, in order: the damaged frames, and those up to the next that needs no other
    /// one.
    const std::vector<FrameRange>& DamagedFrames() const {
        return damaged_;
    }

    /// Fills the picture with the next frame: scaled, when sizes differ, until it just covers the picture,
    /// what is too much cut off evenly on both sides, but for an odd last column or row. False at the end of
    /// the range or the clip. Throws UsageError, naming the file, when the clip has no frame in the range,
    /// and, with the number of the first frame that cannot be trusted, when it is damaged and damage is not
    /// skipped.
    bool Read(Nv12& picture);

private:
    bool NextFrame();
    void NoteTime();
    void Feed();
    bool IsDropped();
    void Damaged(const std::string& how);
    void Lose(int64_t count);
    void Give(Nv12& picture);

    std::filesystem::path file_;
    FrameRange frames_;
    OnDamage onDamage_;
    PacketReader packets_;
    Orientation orientation_;
    Turn turn_;
    ClipFormat format_;
    AvOwned<AVCodecContext> codec_;
    AvOwned<AVFrame> frame_{av_frame_alloc()};
    AvOwned<AVPacket> packet_{av_packet_alloc()};
    FrameGraph graph_;
    int64_t inDecoder_ = 0;  ///< packets that have not become frames yet
    int64_t next_ = 0;       ///< number of the next frame
    FrameTime time_;         ///< of the frame that was decoded last; no duration before the first
    bool seeksKey_ = false;  ///< after damage, until a frame that needs no other one
    int64_t keyTime_ = AV_NOPTS_VALUE;
    bool hasGiven_ = false;
    bool isResized_ = false;  ///< whether frames of another size were told of
    std::vector<FrameRange> damaged_;
};

}  // namespace desk
