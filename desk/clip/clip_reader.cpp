#include "desk/clip/clip_reader.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "desk/base/usage_error.h"
#include "desk/output/say.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace desk {
namespace {

constexpr const char* Unfit = "its data does not fit together";

bool IsOddBy(cv::Size frame, cv::Size shape) {
    return frame != shape && frame / 2 * 2 == shape;
}

}  // namespace

ClipReader::ClipReader(const std::filesystem::path& clip, const FrameRange& frames, OnDamage onDamage,
                       Orientation orientation, double folderRate)
    : file_(clip),
      frames_(frames),
      onDamage_(onDamage),
      packets_(clip, folderRate),
      orientation_(orientation),
      turn_(orientation == Orientation::Upright ? TurnOf(packets_.Stream()) : Turn()),
      format_(packets_.Format()),
      codec_(packets_.OpenDecoder()) {
    if (turn_.isTransposed) {
        std::swap(format_.size.width, format_.size.height);
        format_.pixelAspect = format_.pixelAspect.num > 0 ? av_inv_q(format_.pixelAspect) : AVRational{0, 1};
    }
    if (!turn_.filters.empty() && format_.chromaPlace != AVCHROMA_LOC_CENTER) {
        format_.chromaPlace = AVCHROMA_LOC_UNSPECIFIED;
    }
}

void ClipReader::TellLosses(cv::Size size) const {
    const AVCodecParameters& video = *packets_.Stream().codecpar;
    const AVPixFmtDescriptor& pixels = *av_pix_fmt_desc_get(static_cast<AVPixelFormat>(video.format));
    const bool isRgb = (pixels.flags & AV_PIX_FMT_FLAG_RGB) != 0;
    const bool isHalved = pixels.log2_chroma_w == 1 && pixels.log2_chroma_h == 1;
    const bool isOdd = IsOddBy(format_.size, size);
    std::vector<std::string> losses;
    const auto lose = [&losses](bool isLost, const std::string& what) {
        losses.insert(losses.end(), isLost ? 1 : 0, what);
    };
    lose(pixels.comp[0].depth > 8, fmt::format("{}-bit samples become 8-bit", pixels.comp[0].depth));
    lose(isRgb, "RGB becomes YCbCr 4:2:0");
    lose(!isRgb && pixels.nb_components >= 3 && !isHalved,
         fmt::format("chroma of {} becomes 4:2:0", pixels.name));
    lose((pixels.flags & AV_PIX_FMT_FLAG_ALPHA) != 0, "alpha is left out");
    lose(video.field_order > AV_FIELD_PROGRESSIVE, "interlaced fields are taken for whole frames");
    lose(isOdd && size.width < format_.size.width, "the odd last column is left out");
    lose(isOdd && size.height < format_.size.height, "the odd last row is left out");
    lose(turn_.odd > 1,
         fmt::format("its turn by {:.0f} degrees more than quarters is not undone", turn_.odd));
    if (!losses.empty()) {
        Say(stderr, "dewarp-desk: {}: {}", file_.string(), fmt::join(losses, "; "));
    }
}

int64_t ClipReader::ExpectedFrames() const {
    const int64_t all = packets_.ExpectedFrames();
    return std::max<int64_t>(std::min(all, frames_.end) - frames_.first, 0);
}

bool ClipReader::Read(Nv12& picture) {
    while (next_ < frames_.end && NextFrame()) {
        if (next_ > frames_.first && next_ <= frames_.end) {
            Give(picture);
            return true;
        }
    }
    if (!hasGiven_) {
        throw UsageError(
            damaged_.empty()
                ? fmt::format("{} has {} frames; expected more than {}", file_.string(), next_, frames_.first)
                : fmt::format("{} has only damaged frames from frame {} on", file_.string(), frames_.first));
    }
    return false;
}

/// Decodes the next frame that can be trusted. False at the end of the clip.
bool ClipReader::NextFrame() {
    while (true) {
        const int error = avcodec_receive_frame(codec_.get(), frame_.get());
        const bool isPatched =
            packets_.TakeComplaint() ||
            (error >= 0 && (frame_->decode_error_flags != 0 || (frame_->flags & AV_FRAME_FLAG_CORRUPT) != 0));
        if (isPatched) {
            Damaged(Unfit);
        } else if (error == AVERROR(EAGAIN)) {
            Feed();
        } else if (error == AVERROR_EOF) {
            break;
        } else if (error < 0) {
            Damaged(AvText(error));
        } else {
            inDecoder_--;
            next_++;
            NoteTime();
            return true;
        }
    }
    inDecoder_ = 0;
    if (const auto missing = packets_.TakeMissing(); !missing.what.empty()) {
        Damaged(missing.what);
        Lose(missing.frames);
    }
    return false;
}

/// Frames of unknown times, and those whose clock is set back, follow the one before them.
void ClipReader::NoteTime() {
    const auto microseconds = [this](int64_t ticks) {
        return av_rescale_q(ticks, format_.tick, AV_TIME_BASE_Q);
    };
    const int64_t start = microseconds(frame_->best_effort_timestamp);
    const bool isKnown =
        frame_->best_effort_timestamp != AV_NOPTS_VALUE && (time_.duration == 0 || start > time_.start);
    time_.start = isKnown ? start : time_.start + time_.duration;
    time_.duration = frame_->pkt_duration > 0 ? microseconds(frame_->pkt_duration)
                                              : av_rescale_q(1, av_inv_q(format_.rate), AV_TIME_BASE_Q);
    time_.duration = std::max<int64_t>(time_.duration, 1);
}

std::vector<AvOwned<AVPacket>> ClipReader::TakeOthers() {
    constexpr int64_t Aside = AV_TIME_BASE;  // streams lie beside one another, but not exactly
    const bool isCutOff = next_ >= frames_.end;
    return packets_.TakeOthers(isCutOff ? time_.start + time_.duration + Aside : 0);
}

/// Hands the decoder one more packet, or tells it that there are no more.
void ClipReader::Feed() {
    AVPacket* const packet = packet_.get();
    if (!packets_.Next(*packet)) {
        avcodec_send_packet(codec_.get(), nullptr);
        return;
    }
    const bool isCorrupt = packets_.TakeComplaint() || (packet->flags & AV_PKT_FLAG_CORRUPT) != 0;
    if (!isCorrupt && IsDropped()) {
        Lose(1);
        return;
    }
    inDecoder_ += (packet->flags & AV_PKT_FLAG_DISCARD) != 0 ? 0 : 1;
    const int error = isCorrupt ? 0 : avcodec_send_packet(codec_.get(), packet);
    if (isCorrupt || error < 0 || packets_.TakeComplaint()) {
        Damaged(error < 0 ? AvText(error) : isCorrupt ? "it is cut off or overwritten there" : Unfit);
    }
}

/// Whether the packet waits for a frame that stands alone, or belongs before it in time.
bool ClipReader::IsDropped() {
    if (seeksKey_ && (packet_->flags & AV_PKT_FLAG_KEY) != 0) {
        seeksKey_ = false;
        keyTime_ = packet_->pts;
        return false;
    }
    const bool isTimed = packet_->pts != AV_NOPTS_VALUE && keyTime_ != AV_NOPTS_VALUE;
    return seeksKey_ || (isTimed && packet_->pts < keyTime_);
}

/// What is in the decoder, and what needs it, cannot be trusted.
void ClipReader::Damaged(const std::string& how) {
    if (onDamage_ == OnDamage::Stop) {
        throw UsageError(
            fmt::format("{} is damaged at frame {}: {}; expected a clip that decodes without error, or "
                        "--damaged skip",
                        file_.string(), next_, how));
    }
    avcodec_flush_buffers(codec_.get());
    Lose(inDecoder_);
    inDecoder_ = 0;
    seeksKey_ = true;
}

/// The next frames, so many of them, are lost.
void ClipReader::Lose(int64_t count) {
    if (count > 0) {
        Extend(damaged_, next_, count);
        next_ += count;
    }
}

/// Converts the frame to the picture's format and size.
void ClipReader::Give(Nv12& picture) {
    const AVCodecParameters& video = *packets_.Stream().codecpar;
    if (!isResized_ && (frame_->width != video.width || frame_->height != video.height)) {
        isResized_ = true;
        Say(stderr, "dewarp-desk: {}: frame {} is {} x {}, others are {} x {}; all are scaled to one size",
            file_.string(), Frame(), frame_->width, frame_->height, video.width, video.height);
    }
    hasGiven_ = true;
    frame_->colorspace = format_.matrix;
    const cv::Size size = picture.luma.size();
    const char* const crop =
        IsOddBy(format_.size, size) ? "crop=iw-mod(iw\\,2):ih-mod(ih\\,2):0:0:exact=1," : "";
    const Nv12 made = PlanesOf(
        graph_.Filter(*frame_, turn_.filters + crop + Scaling(size, AV_PIX_FMT_NV12, format_.range)));
    made.luma.copyTo(picture.luma);
    made.chroma.copyTo(picture.chroma);
}

}  // namespace desk
