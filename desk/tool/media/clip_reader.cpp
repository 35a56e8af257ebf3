#include "desk/tool/media/clip_reader.h"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdarg>
#include <string>

#include "desk/tool/errors.h"
#include "desk/tool/media/av_handles.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace desk {
namespace {

/// Whether FFmpeg has complained since a clip was opened. It patches up some damage and tells only its log.
std::atomic<bool> hasComplained = false;

void WatchLog(void* source, int level, const char* /*format*/, va_list /*arguments*/) {
    const AVClass* kind = source == nullptr ? nullptr : *static_cast<AVClass**>(source);
    if (level > AV_LOG_ERROR || kind == nullptr) {
        return;
    }
    const AVClassCategory category =
        kind->get_category != nullptr ? kind->get_category(source) : kind->category;
    if (category == AV_CLASS_CATEGORY_DECODER || category == AV_CLASS_CATEGORY_DEMUXER) {
        hasComplained = true;
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
    decoder->thread_count = 0;  // as many as there are cores
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

}  // namespace

struct ClipReader::Decoder {
    Decoder(const std::filesystem::path& clip, const FrameRange& range);
    bool NextFrame();
    void Feed();
    void RequireWhole() const;
    [[noreturn]] void FailDamaged(const std::string& how) const;

    std::filesystem::path file;
    FrameRange frames;
    AvOwned<AVFormatContext> container;
    AVStream* stream = nullptr;
    AvOwned<AVCodecContext> codec;
    AvOwned<AVFrame> frame{av_frame_alloc()};
    AvOwned<AVPacket> packet{av_packet_alloc()};
    AvScaler scaler;
    ClipFormat format;
    int64_t packets = 0;
    double lastSeconds = 0;  ///< of the packets read
    int64_t decoded = 0;
};

ClipReader::Decoder::Decoder(const std::filesystem::path& clip, const FrameRange& range)
    : file(clip), frames(range) {
    av_log_set_callback(&WatchLog);  // what goes wrong is said in the sentence of the error
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
    hasComplained = false;  // what was probed for the kind of clip does not count
}

void ClipReader::Decoder::FailDamaged(const std::string& how) const {
    throw UsageError(
        fmt::format("{} is damaged near frame {}: {}; expected a clip that decodes without error",
                    file.string(), decoded, how));
}

void ClipReader::Decoder::RequireWhole() const {
    if (hasComplained) {
        FailDamaged("it ends within a frame");
    }
    if (packets < stream->nb_frames) {
        FailDamaged(fmt::format("it ends after {} of the {} frames that its header promises", packets,
                                stream->nb_frames));
    }
    // Of several streams another one may be the longest.
    const bool isTimed = container->nb_streams == 1 && container->duration > 0 &&
                         container->duration_estimation_method == AVFMT_DURATION_FROM_STREAM;
    const double promised = isTimed ? static_cast<double>(container->duration) / AV_TIME_BASE : 0;
    constexpr double Tolerance = 0.5;  // seconds
    if (lastSeconds + Tolerance < promised) {
        FailDamaged(fmt::format("it ends after {:.2f} of the {:.2f} seconds that its header promises",
                                lastSeconds, promised));
    }
}

/// Hands the decoder one more packet, or tells it that there are no more.
void ClipReader::Decoder::Feed() {
    int error = av_read_frame(container.get(), packet.get());
    if (error == AVERROR_EOF) {
        RequireWhole();
        avcodec_send_packet(codec.get(), nullptr);
        return;
    }
    if (error >= 0 && packet->stream_index == stream->index) {
        packets++;
        lastSeconds = std::max(lastSeconds, static_cast<double>(packet->pts) * av_q2d(stream->time_base));
        error = avcodec_send_packet(codec.get(), packet.get());
    }
    av_packet_unref(packet.get());
    if (error < 0) {
        FailDamaged(AvText(error));
    }
}

bool ClipReader::Decoder::NextFrame() {
    int error = avcodec_receive_frame(codec.get(), frame.get());
    while (error == AVERROR(EAGAIN)) {
        Feed();
        error = avcodec_receive_frame(codec.get(), frame.get());
    }
    if (error == AVERROR_EOF) {
        return false;
    }
    if (error < 0 || hasComplained || frame->decode_error_flags != 0 ||
        (frame->flags & AV_FRAME_FLAG_CORRUPT) != 0) {
        FailDamaged(error < 0 ? AvText(error) : "its data does not fit together");
    }
    decoded++;
    return true;
}

ClipReader::ClipReader(const std::filesystem::path& clip, const FrameRange& frames)
    : decoder_(std::make_unique<Decoder>(clip, frames)) {}

ClipReader::~ClipReader() = default;

const ClipFormat& ClipReader::Format() const {
    return decoder_->format;
}

int64_t ClipReader::ExpectedFrames() const {
    const FrameRange& range = decoder_->frames;
    int64_t all = decoder_->stream->nb_frames;
    const AVFormatContext& container = *decoder_->container;
    if (all == 0 && container.duration > 0 &&
        container.duration_estimation_method != AVFMT_DURATION_FROM_BITRATE) {
        const double seconds = static_cast<double>(container.duration) / AV_TIME_BASE;
        all = std::llround(seconds * decoder_->format.FramesPerSecond());
    }
    return all <= 0 ? 0 : std::max<int64_t>(std::min(all, range.end) - range.first, 0);
}

int64_t ClipReader::Frame() const {
    return decoder_->decoded - 1;
}

bool ClipReader::Read(Nv12& picture) {
    Decoder& decoder = *decoder_;
    do {
        if (decoder.decoded >= decoder.frames.end) {
            return false;
        }
        if (!decoder.NextFrame()) {
            if (decoder.decoded <= decoder.frames.first) {
                throw UsageError(fmt::format("{} has {} frames; expected more than {}", decoder.file.string(),
                                             decoder.decoded, decoder.frames.first));
            }
            return false;
        }
    } while (decoder.decoded <= decoder.frames.first);
    AVFrame& frame = *decoder.frame;
    CropToShape(frame, picture.luma.size());
    const AvPlanes planes(picture);
    const AvScaler::Side from = {frame.width, frame.height, static_cast<AVPixelFormat>(frame.format),
                                 decoder.format.fullRange};
    const AvScaler::Side to = {picture.luma.cols, picture.luma.rows, AV_PIX_FMT_NV12,
                               decoder.format.fullRange};
    decoder.scaler.Convert(from, frame.data, frame.linesize, to, planes.data, planes.stride,
                           decoder.format.matrix);
    return true;
}

}  // namespace desk
