#include "desk/clip/clip_reader.h"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdarg>
#include <string>
#include <utility>

#include "desk/base/usage_error.h"
#include "desk/clip/av_handles.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace desk {
namespace {

constexpr const char* Unfit = "its data does not fit together";

/// FFmpeg patches up some damage and tells only its log. Both kinds of context carry the flag of the reader
/// they belong to, on whichever thread they complain; other contexts carry none.
void WatchLog(void* source, int level, const char* /*format*/, va_list /*arguments*/) {
    if (source == nullptr) {
        return;
    }
    const AVClass* kind = *static_cast<AVClass**>(source);
    void* flag = nullptr;
    if (kind == avcodec_get_class()) {
        flag = static_cast<AVCodecContext*>(source)->opaque;
    } else if (kind == avformat_get_class()) {
        flag = static_cast<AVFormatContext*>(source)->opaque;
    }
    if (flag != nullptr && level <= AV_LOG_ERROR) {
        *static_cast<std::atomic<bool>*>(flag) = true;
    }
}

AvOwned<AVFormatContext> OpenContainer(const std::filesystem::path& clip) {
    std::error_code unknown;
    const bool isFolder = std::filesystem::is_directory(clip, unknown);
    const std::string url = isFolder ? (clip / "%06d.png").string() : clip.string();
    const AVInputFormat* format = isFolder ? av_find_input_format("image2") : nullptr;
    AVFormatContext* container = nullptr;
    int error = avformat_open_input(&container, ("file:" + url).c_str(), format, nullptr);
    AvOwned<AVFormatContext> owned(container);
    if (error == 0) {
        error = avformat_find_stream_info(container, nullptr);
    }
    // FFmpeg shows any text as pictures of a terminal.
    if (error >= 0 && std::string(container->iformat->name) == "tty") {
        error = AVERROR_INVALIDDATA;
    }
    if (error == AVERROR(EACCES)) {
        throw std::runtime_error(
            fmt::format("{} cannot be read: {}; expected a clip", clip.string(), AvText(error)));
    }
    if (error == AVERROR(ENOENT) && !isFolder) {
        throw UsageError(fmt::format("{} does not exist; expected a clip", clip.string()));
    }
    if (error < 0) {
        throw UsageError(
            fmt::format("{} is not a clip ({}); expected a video that FFmpeg reads, or a folder of pictures "
                        "000001.png, 000002.png and so on",
                        clip.string(), AvText(error)));
    }
    return owned;
}

AvOwned<AVCodecContext> OpenDecoder(const std::filesystem::path& clip, AVStream& stream,
                                    const AVCodec* codec) {
    AvOwned<AVCodecContext> decoder(avcodec_alloc_context3(codec));
    avcodec_parameters_to_context(decoder.get(), stream.codecpar);
    // Frame threads tell damage early or late, as they are scheduled, and so do slices that are patched up
    // from one another. Those of FFV1 stand alone.
    decoder->thread_type = FF_THREAD_SLICE;
    decoder->thread_count = codec->id == AV_CODEC_ID_FFV1 ? 0 : 1;  // 0: as many as there are cores
    decoder->err_recognition = AV_EF_CRCCHECK | AV_EF_EXPLODE;
    if (const int error = avcodec_open2(decoder.get(), codec, nullptr); error < 0) {
        throw UsageError(
            fmt::format("{} cannot be decoded as {}: {}", clip.string(), codec->name, AvText(error)));
    }
    return decoder;
}

ClipFormat FormatOf(AVFormatContext* container, AVStream* stream, AVPixelFormat pixels) {
    const AVCodecParameters& video = *stream->codecpar;
    const AVPixFmtDescriptor* description = av_pix_fmt_desc_get(pixels);
    const bool isRgb = description != nullptr && (description->flags & AV_PIX_FMT_FLAG_RGB) != 0;
    const bool isNamedFull = description != nullptr && std::string(description->name).rfind("yuvj", 0) == 0;
    ClipFormat format;
    format.size = {video.width, video.height};
    const AVRational rate = av_guess_frame_rate(container, stream, nullptr);
    if (rate.num > 0 && rate.den > 0) {
        format.rateNumerator = rate.num;
        format.rateDenominator = rate.den;
    }
    format.fullRange = isRgb || isNamedFull || video.color_range == AVCOL_RANGE_JPEG;
    format.matrix = isRgb ? int{AVCOL_SPC_BT470BG} : int{video.color_space};
    return format;
}

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

/// Packets that the file's index lists for the stream; 0 when the header counts something else, as AVI counts
/// the fields of H.264.
int64_t IndexedPackets(AVStream* stream) {
    const int entries = avformat_index_get_entries_count(stream);
    if (entries != stream->nb_frames) {
        return 0;
    }
    int64_t packets = 0;
    for (int i = 0; i < entries; i++) {
        packets += avformat_index_get_entry(stream, i)->size > 0 ? 1 : 0;
    }
    return packets;
}

/// Seconds that the header promises of the stream; 0 when it does not.
double PromisedSeconds(const AVFormatContext& container, const AVStream& stream) {
    if (container.duration_estimation_method != AVFMT_DURATION_FROM_STREAM) {
        return 0;
    }
    const double own =
        stream.duration > 0 ? static_cast<double>(stream.duration) * av_q2d(stream.time_base) : 0;
    // Of several streams another one may be the longest.
    const bool isAll = container.nb_streams == 1 && container.duration > 0;
    return std::max(own, isAll ? static_cast<double>(container.duration) / AV_TIME_BASE : 0);
}

}  // namespace

struct ClipReader::Decoder {
    Decoder(const std::filesystem::path& clip, const FrameRange& range, OnDamage damage);
    bool NextFrame();
    void Give(Nv12& picture);
    void Feed();
    void Take();
    bool IsDropped();
    std::string FindEnd(int error);
    void Damaged(const std::string& how);
    void Lose(int64_t count);
    bool TakeComplaint() {
        return hasComplained.exchange(false);
    }

    std::filesystem::path file;
    FrameRange frames;
    OnDamage onDamage;
    std::atomic<bool> hasComplained = false;  ///< FFmpeg, about this clip; set by its log
    AvOwned<AVFormatContext> container;
    AVStream* stream = nullptr;
    AvOwned<AVCodecContext> codec;
    AvOwned<AVFrame> frame{av_frame_alloc()};
    AvOwned<AVPacket> packet{av_packet_alloc()};
    AvScaler scaler;
    ClipFormat format;
    int64_t indexed = 0;  ///< packets; 0 when the file does not say
    double promised = 0;  ///< seconds; likewise
    int64_t packets = 0;
    int64_t end = 0;        ///< of the last packet, in bytes of the file
    double reached = 0;     ///< seconds, the end of the last frame in time
    int64_t inDecoder = 0;  ///< packets that have not become frames yet
    int64_t next = 0;       ///< number of the next frame
    bool seeksKey = false;  ///< after damage, until a frame that needs no other one
    int64_t keyTime = AV_NOPTS_VALUE;
    bool hasGiven = false;
    bool hasEnded = false;
    std::string missing;  ///< at the end of the file: in words; empty when nothing is
    int64_t missingFrames = 0;
    std::vector<FrameRange> damaged;
};

ClipReader::Decoder::Decoder(const std::filesystem::path& clip, const FrameRange& range, OnDamage damage)
    : file(clip), frames(range), onDamage(damage) {
    // What goes wrong is said in the sentence of the error.
    static const bool isWatched = (av_log_set_callback(&WatchLog), true);
    static_cast<void>(isWatched);
    container = OpenContainer(clip);
    const AVCodec* found = nullptr;
    const int index = av_find_best_stream(container.get(), AVMEDIA_TYPE_VIDEO, -1, -1, &found, 0);
    if (index < 0 || found == nullptr) {
        throw UsageError(
            fmt::format("{} has no video stream that can be decoded; expected a clip", clip.string()));
    }
    stream = container->streams[index];
    codec = OpenDecoder(clip, *stream, found);
    if (codec->width <= 0 || codec->height <= 0 || codec->pix_fmt == AV_PIX_FMT_NONE) {
        throw UsageError(
            fmt::format("{} has no picture in its video stream; expected a clip", clip.string()));
    }
    format = FormatOf(container.get(), stream, codec->pix_fmt);
    indexed = IndexedPackets(stream);
    promised = PromisedSeconds(*container, *stream);
    // What was said while the kind of clip was probed does not count.
    codec->opaque = &hasComplained;
    container->opaque = &hasComplained;
}

/// The next frames, so many of them, are lost.
void ClipReader::Decoder::Lose(int64_t count) {
    if (count > 0 && !damaged.empty() && damaged.back().end == next) {
        damaged.back().end += count;
    } else if (count > 0) {
        damaged.push_back({next, next + count});
    }
    next += count;
}

/// What is in the decoder, and what needs it, cannot be trusted.
void ClipReader::Decoder::Damaged(const std::string& how) {
    if (onDamage == OnDamage::Stop) {
        throw UsageError(
            fmt::format("{} is damaged at frame {}: {}; expected a clip that decodes without error, or "
                        "--damaged skip",
                        file.string(), next, how));
    }
    avcodec_flush_buffers(codec.get());
    Lose(inDecoder);
    inDecoder = 0;
    seeksKey = true;
}

/// What the clip lacks at the end of the file, in words; empty when it is whole.
std::string ClipReader::Decoder::FindEnd(int error) {
    AVIOContext* bytes = container->pb;
    const bool isAtEnd = bytes != nullptr && bytes->eof_reached != 0 && bytes->error == 0;
    const bool isNoisy = TakeComplaint() || error != AVERROR_EOF;
    if (error != AVERROR_EOF && !isAtEnd) {
        return AvText(error);
    }
    if (indexed > 0) {
        missingFrames = std::max<int64_t>(indexed - packets, 0);
        return missingFrames == 0 ? ""
                                  : fmt::format("it ends after {} of the {} frames that its header promises",
                                                packets, indexed);
    }
    // Of raw frames one that is cut off is passed over in silence.
    if (std::string(container->iformat->name) == "yuv4mpegpipe" && packets > 0 && avio_tell(bytes) > end) {
        missingFrames = 1;
        return "it ends within a frame";
    }
    // Headers round, or count what was cut off at the start; but a file cut within its last frame makes
    // FFmpeg complain too. Without a promise what stands behind the last whole packet is not the clip's.
    const double frameRate = format.FramesPerSecond();
    const double tolerance = isNoisy ? 0.75 / frameRate : 0.5;  // seconds
    if (reached + tolerance >= promised) {
        return "";
    }
    missingFrames = std::llround((promised - reached) * frameRate);
    return fmt::format("it ends after {:.2f} of the {:.2f} seconds that its header promises", reached,
                       promised);
}

/// Whether the packet waits for a frame that stands alone, or belongs before it in time.
bool ClipReader::Decoder::IsDropped() {
    if (seeksKey && (packet->flags & AV_PKT_FLAG_KEY) != 0) {
        seeksKey = false;
        keyTime = packet->pts;
        return false;
    }
    const bool isTimed = packet->pts != AV_NOPTS_VALUE && keyTime != AV_NOPTS_VALUE;
    return seeksKey || (isTimed && packet->pts < keyTime);
}

/// Hands the packet to the decoder.
void ClipReader::Decoder::Take() {
    packets++;
    end = packet->pos + packet->size;
    const double tick = av_q2d(stream->time_base);
    const int64_t time = packet->pts != AV_NOPTS_VALUE ? packet->pts : packet->dts;
    if (time != AV_NOPTS_VALUE) {
        const int64_t start = stream->start_time != AV_NOPTS_VALUE ? stream->start_time : 0;
        const double length = packet->duration > 0 ? static_cast<double>(packet->duration) * tick
                                                   : 1 / format.FramesPerSecond();
        reached = std::max(reached, static_cast<double>(time - start) * tick + length);
    }
    const bool isCorrupt = TakeComplaint() || (packet->flags & AV_PKT_FLAG_CORRUPT) != 0;
    if (!isCorrupt && IsDropped()) {
        Lose(1);
        return;
    }
    inDecoder += (packet->flags & AV_PKT_FLAG_DISCARD) != 0 ? 0 : 1;
    const int error = isCorrupt ? 0 : avcodec_send_packet(codec.get(), packet.get());
    if (isCorrupt || error < 0 || TakeComplaint()) {
        Damaged(error < 0 ? AvText(error) : isCorrupt ? "it is cut off or overwritten there" : Unfit);
    }
}

/// Hands the decoder one more packet, or tells it that there are no more.
void ClipReader::Decoder::Feed() {
    const int error = hasEnded ? AVERROR_EOF : av_read_frame(container.get(), packet.get());
    if (error >= 0) {
        if (packet->stream_index == stream->index && packet->size > 0) {
            Take();
        }
        av_packet_unref(packet.get());
        return;
    }
    if (!hasEnded) {
        hasEnded = true;
        missing = FindEnd(error);
    }
    avcodec_send_packet(codec.get(), nullptr);
}

/// Converts the frame to the picture's format and size.
void ClipReader::Decoder::Give(Nv12& picture) {
    hasGiven = true;
    CropToShape(*frame, picture.luma.size());
    const AvPlanes planes(picture);
    const AvScaler::Side from = {frame->width, frame->height, static_cast<AVPixelFormat>(frame->format),
                                 format.fullRange};
    const AvScaler::Side to = {picture.luma.cols, picture.luma.rows, AV_PIX_FMT_NV12, format.fullRange};
    scaler.Convert(from, frame->data, frame->linesize, to, planes.data, planes.stride, format.matrix);
}

bool ClipReader::Decoder::NextFrame() {
    while (true) {
        const int error = avcodec_receive_frame(codec.get(), frame.get());
        const bool isPatched =
            TakeComplaint() ||
            (error >= 0 && (frame->decode_error_flags != 0 || (frame->flags & AV_FRAME_FLAG_CORRUPT) != 0));
        if (isPatched) {
            Damaged(Unfit);
        } else if (error == AVERROR(EAGAIN)) {
            Feed();
        } else if (error == AVERROR_EOF) {
            break;
        } else if (error < 0) {
            Damaged(AvText(error));
        } else {
            inDecoder--;
            next++;
            return true;
        }
    }
    inDecoder = 0;
    if (!missing.empty()) {
        Damaged(std::exchange(missing, ""));
        Lose(missingFrames);
    }
    return false;
}

ClipReader::ClipReader(const std::filesystem::path& clip, const FrameRange& frames, OnDamage onDamage)
    : decoder_(std::make_unique<Decoder>(clip, frames, onDamage)) {}

ClipReader::~ClipReader() = default;

const ClipFormat& ClipReader::Format() const {
    return decoder_->format;
}

int64_t ClipReader::ExpectedFrames() const {
    const FrameRange& range = decoder_->frames;
    int64_t all = decoder_->indexed;
    const AVFormatContext& container = *decoder_->container;
    if (all == 0 && container.duration > 0 &&
        container.duration_estimation_method != AVFMT_DURATION_FROM_BITRATE) {
        const double seconds = static_cast<double>(container.duration) / AV_TIME_BASE;
        all = std::llround(seconds * decoder_->format.FramesPerSecond());
    }
    return all <= 0 ? 0 : std::max<int64_t>(std::min(all, range.end) - range.first, 0);
}

int64_t ClipReader::Frame() const {
    return decoder_->next - 1;
}

const std::vector<FrameRange>& ClipReader::DamagedFrames() const {
    return decoder_->damaged;
}

bool ClipReader::Read(Nv12& picture) {
    Decoder& decoder = *decoder_;
    const FrameRange& range = decoder.frames;
    while (decoder.next < range.end && decoder.NextFrame()) {
        if (decoder.next > range.first && decoder.next <= range.end) {
            decoder.Give(picture);
            return true;
        }
    }
    if (!decoder.hasGiven) {
        throw UsageError(decoder.damaged.empty()
                             ? fmt::format("{} has {} frames; expected more than {}", decoder.file.string(),
                                           decoder.next, range.first)
                             : fmt::format("{} has only damaged frames from frame {} on",
                                           decoder.file.string(), range.first));
    }
    return false;
}

}  // namespace desk
