#include "desk/clip/clip_reader.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <tuple>
#include <utility>

#include "desk/base/usage_error.h"

namespace desk {
namespace {

constexpr const char* Unfit = "its data does not fit together";

/// Cuts off what a picture of the given size does not show of the frame, evenly on both sides and by whole
/// chroma samples.
void CropToShape(AVFrame& frame, cv::Size shape) {
    const double scale = std::max(static_cast<double>(shape.width) / frame.width,
                                  static_cast<double>(shape.height) / frame.height);
    const auto cut = [scale](int have, int shown) {
        const auto spare = static_cast<size_t>(have - static_cast<int>(std::lround(shown / scale)));
        return std::pair<size_t, size_t>{spare / 4 * 2, spare - spare / 4 * 2};
    };
    std::tie(frame.crop_left, frame.crop_right) = cut(frame.width, shape.width);
    std::tie(frame.crop_top, frame.crop_bottom) = cut(frame.height, shape.height);
    av_frame_apply_cropping(&frame, AV_FRAME_CROP_UNALIGNED);
}

}  // namespace

ClipReader::ClipReader(const std::filesystem::path& clip, const FrameRange& frames, OnDamage onDamage)
    : file_(clip), frames_(frames), onDamage_(onDamage), packets_(clip), codec_(packets_.OpenDecoder()) {}

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
    CropToShape(*frame_, picture.luma.size());
    frame_->color_range = RangeOf(Format());  // which some formats say by their name
    scaler_.Convert(*frame_, *ViewOf(picture, Format()), Format().matrix);
}

}  // namespace desk
