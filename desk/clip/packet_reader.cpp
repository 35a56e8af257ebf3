#include "desk/clip/packet_reader.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdarg>

#include "desk/base/usage_error.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace desk {
namespace {

/// Both kinds of context carry the flag of the reader they belong to, on whichever thread they complain;
/// other contexts carry none.
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

ClipFormat FormatOf(AVFormatContext* container, AVStream* stream) {
    const AVCodecParameters& video = *stream->codecpar;
    const AVPixFmtDescriptor* description = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(video.format));
    const bool isRgb = (description->flags & AV_PIX_FMT_FLAG_RGB) != 0;
    const bool isNamedFull = std::string(description->name).rfind("yuvj", 0) == 0;
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

PacketReader::PacketReader(const std::filesystem::path& clip) : file_(clip) {
    // What goes wrong is said in the sentence of the error.
    static const bool isWatched = (av_log_set_callback(&WatchLog), true);
    static_cast<void>(isWatched);
    container_ = OpenContainer(clip);
    const int index = av_find_best_stream(container_.get(), AVMEDIA_TYPE_VIDEO, -1, -1, &codec_, 0);
    if (index < 0 || codec_ == nullptr) {
        throw UsageError(
            fmt::format("{} has no video stream that can be decoded; expected a clip", clip.string()));
    }
    stream_ = container_->streams[index];
    const AVCodecParameters& video = *stream_->codecpar;
    if (video.width <= 0 || video.height <= 0 || video.format == AV_PIX_FMT_NONE) {
        throw UsageError(
            fmt::format("{} has no picture in its video stream; expected a clip", clip.string()));
    }
    format_ = FormatOf(container_.get(), stream_);
    indexed_ = IndexedPackets(stream_);
    promised_ = PromisedSeconds(*container_, *stream_);
}

AvOwned<AVCodecContext> PacketReader::OpenDecoder() {
    AvOwned<AVCodecContext> decoder(avcodec_alloc_context3(codec_));
    avcodec_parameters_to_context(decoder.get(), stream_->codecpar);
    // Frame threads tell damage early or late, as they are scheduled, and so do slices that are patched up
    // from one another. Those of FFV1 stand alone.
    decoder->thread_type = FF_THREAD_SLICE;
    decoder->thread_count = codec_->id == AV_CODEC_ID_FFV1 ? 0 : 1;  // 0: as many as there are cores
    decoder->err_recognition = AV_EF_CRCCHECK | AV_EF_EXPLODE;
    if (const int error = avcodec_open2(decoder.get(), codec_, nullptr); error < 0) {
        throw UsageError(
            fmt::format("{} cannot be decoded as {}: {}", file_.string(), codec_->name, AvText(error)));
    }
    // What was said while the kind of clip was probed does not count: headers may be odd, and frames whole.
    decoder->opaque = &hasComplained_;
    container_->opaque = &hasComplained_;
    return decoder;
}

int64_t PacketReader::ExpectedFrames() const {
    if (indexed_ > 0 || container_->duration <= 0 ||
        container_->duration_estimation_method == AVFMT_DURATION_FROM_BITRATE) {
        return indexed_;
    }
    return std::llround(static_cast<double>(container_->duration) / AV_TIME_BASE * format_.FramesPerSecond());
}

bool PacketReader::Next(AVPacket& packet) {
    while (!hasEnded_) {
        av_packet_unref(&packet);
        const int error = av_read_frame(container_.get(), &packet);
        if (error < 0) {
            hasEnded_ = true;
            missing_ = FindMissing(error);
        } else if (packet.stream_index == stream_->index && packet.size > 0) {
            Count(packet);
            return true;
        }
    }
    return false;
}

void PacketReader::Count(const AVPacket& packet) {
    packets_++;
    end_ = packet.pos + packet.size;
    const int64_t time = packet.pts != AV_NOPTS_VALUE ? packet.pts : packet.dts;
    if (time != AV_NOPTS_VALUE) {
        const double tick = av_q2d(stream_->time_base);
        const int64_t start = stream_->start_time != AV_NOPTS_VALUE ? stream_->start_time : 0;
        const double length =
            packet.duration > 0 ? static_cast<double>(packet.duration) * tick : 1 / format_.FramesPerSecond();
        reached_ = std::max(reached_, static_cast<double>(time - start) * tick + length);
    }
}

PacketReader::Missing PacketReader::FindMissing(int error) {
    AVIOContext* bytes = container_->pb;
    const bool isAtEnd = bytes != nullptr && bytes->eof_reached != 0 && bytes->error == 0;
    const bool isNoisy = TakeComplaint() || error != AVERROR_EOF;
    if (error != AVERROR_EOF && !isAtEnd) {
        return {AvText(error)};
    }
    if (indexed_ > 0) {
        const int64_t frames = std::max<int64_t>(indexed_ - packets_, 0);
        return {frames == 0 ? ""
                            : fmt::format("it ends after {} of the {} frames that its header promises",
                                          packets_, indexed_),
                frames};
    }
    // Of raw frames one that is cut off is passed over in silence.
    if (std::string(container_->iformat->name) == "yuv4mpegpipe" && packets_ > 0 && avio_tell(bytes) > end_) {
        return {"it ends within a frame", 1};
    }
    // Headers round, or count what was cut off at the start; but a file cut within its last frame makes
    // FFmpeg complain too. Without a promise what stands behind the last whole packet is not the clip's.
    const double frameRate = format_.FramesPerSecond();
    const double tolerance = isNoisy ? 0.75 / frameRate : 0.5;  // seconds
    if (reached_ + tolerance >= promised_) {
        return {};
    }
    return {fmt::format("it ends after {:.2f} of the {:.2f} seconds that its header promises", reached_,
                        promised_),
            std::llround((promised_ - reached_) * frameRate)};
}

}  // namespace desk
