#include "desk/clip/clip_reader.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include "desk/base/usage_error.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace desk {
namespace {

constexpr const char* Unfit = "its data does not fit together";

/// The format of frames that are turned by quarters.
ClipFormat Turned(ClipFormat format, const Turn& turn) {
    if (turn.isTransposed) {
        std::swap(format.size.width, format.size.height);
        format.pixelAspect = format.pixelAspect.num > 0 ? av_inv_q(format.pixelAspect) : AVRational{0, 1};
    }
    if (!turn.filters.empty() && format.chromaPlace != AVCHROMA_LOC_CENTER) {
        format.chromaPlace = AVCHROMA_LOC_UNSPECIFIED;
    }
    return format;
}

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
      turn_(packets_.Stream()),
      orientation_(orientation),
      format_(packets_.Format()),
      codec_(packets_.OpenDecoder()) {
    if (orientation == Orientation::Upright) {
        format_ = Turned(format_, turn_);
    }
}

std::string ClipReader::Losses(cv::Size size) const {
    const AVCodecParameters& video = *packets_.Stream().codecpar;
    const AVPixFmtDescriptor& pixels = *av_pix_fmt_desc_get(static_cast<AVPixelFormat>(video.format));
    const bool isRgb = (pixels.flags & AV_PIX_FMT_FLAG_RGB) != 0;
    const bool isHalved = pixels.log2_chroma_w == 1 && pixels.log2_chroma_h == 1;
    const bool isOdd = IsOddBy(format_.size, size);
    const std::pair<bool, std::string> losses[] = {
        {pixels.comp[0].depth > 8, fmt::format("{}-bit samples become 8-bit", pixels.comp[0].depth)},
        {isRgb, "RGB becomes YCbCr 4:2:0"},
        {!isRgb && pixels.nb_components >= 3 && !isHalved,
         fmt::format("chroma of {} becomes 4:2:0", pixels.name)},
        {(pixels.flags & AV_PIX_FMT_FLAG_ALPHA) != 0, "alpha is left out"},
        {video.field_order > AV_FIELD_PROGRESSIVE, "interlaced fields are taken for whole frames"},
        {isOdd && size.width < format_.size.width, "the odd last column is left out"},
        {isOdd && size.height < format_.size.height, "the odd last row is left out"},
        {orientation_ == Orientation::Upright && turn_.odd > 1,
         fmt::format("its turn by {:.0f} degrees more than quarters is not undone", turn_.odd)},
    };
    std::string text;
    for (const auto& [isLost, what] : losses) {
        text += isLost ? (text.empty() ? "" : "; ") + what : "";
    }
    return text;
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
    const int64_t origin = av_rescale_q(packets_.Origin(), AV_TIME_BASE_Q, format_.tick);
    const int64_t stamp = frame_->best_effort_timestamp;
    const bool isKnown = stamp != AV_NOPTS_VALUE && (time_.duration == 0 || stamp - origin > time_.start);
    time_.start = isKnown ? stamp - origin : time_.start + time_.duration;
    time_.duration = frame_->pkt_duration > 0
                         ? frame_->pkt_duration
                         : std::max<int64_t>(av_rescale_q(1, format_.FrameSeconds(), format_.tick), 1);
}

std::vector<AvOwned<AVPacket>> ClipReader::TakeOthers() {
    // Streams lie beside one another, but not exactly.
    constexpr double Aside = 1;  // second
    const bool isCutOff = next_ >= frames_.end;
    const double end = static_cast<double>(time_.start + time_.duration) * av_q2d(format_.tick);
    return packets_.TakeOthers(isCutOff ? end + Aside + static_cast<double>(packets_.Origin()) / AV_TIME_BASE
                                        : 0);
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
    if (count > 0 && !damaged_.empty() && damaged_.back().end == next_) {
        damaged_.back().end += count;
    } else if (count > 0) {
        damaged_.push_back({next_, next_ + count});
    }
    next_ += count;
}

/// Converts the frame to the picture's format and size.
void ClipReader::Give(Nv12& picture) {
    hasGiven_ = true;
    frame_->colorspace = static_cast<AVColorSpace>(Format().matrix);
    const bool isTurned = orientation_ == Orientation::Upright;
    const bool isTransposed = isTurned && turn_.isTransposed;
    const cv::Size size(isTransposed ? frame_->height : frame_->width,
                        isTransposed ? frame_->width : frame_->height);
    const cv::Size shape = picture.luma.size();
    const AVFrame& made = graph_.Filter(*frame_, (isTurned ? turn_.filters : "") + Shaping(size, shape));
    const auto copy = [&made](int plane, cv::Mat& to) {
        cv::Mat(to.size(), to.type(), made.data[plane], static_cast<size_t>(made.linesize[plane])).copyTo(to);
    };
    copy(0, picture.luma);
    copy(1, picture.chroma);
}

/// The filters that cut off what a picture of the given shape does not show of the frame, evenly on both
/// sides and by whole chroma samples, and scale it.
std::string ClipReader::Shaping(cv::Size frame, cv::Size shape) const {
    const double scale = IsOddBy(frame, shape) ? 1
                                               : std::max(static_cast<double>(shape.width) / frame.width,
                                                          static_cast<double>(shape.height) / frame.height);
    const auto shown = [scale](int have, int wanted) {
        return std::min(static_cast<int>(std::lround(wanted / scale)), have);
    };
    const cv::Size part(shown(frame.width, shape.width), shown(frame.height, shape.height));
    const cv::Size spare = frame - part;
    const std::string crop = spare == cv::Size()
                                 ? ""
                                 : fmt::format("crop={}:{}:{}:{}:exact=1,", part.width, part.height,
                                               spare.width / 4 * 2, spare.height / 4 * 2);
    return crop + Scaling(shape, AV_PIX_FMT_NV12, Format().fullRange);
}

}  // namespace desk
