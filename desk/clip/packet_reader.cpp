#include "desk/clip/packet_reader.h"

#include <fmt/format.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdarg>
#include <fstream>
#include <new>

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

ClipFormat FormatOf(AVFormatContext* container, AVStream* stream) {
    const AVCodecParameters& video = *stream->codecpar;
    const AVPixFmtDescriptor* description = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(video.format));
    const bool isRgb = (description->flags & AV_PIX_FMT_FLAG_RGB) != 0;
    const bool isNamedFull = std::string(description->name).rfind("yuvj", 0) == 0;
    const bool isHalved = description->log2_chroma_w == 1 && description->log2_chroma_h == 1;
    ClipFormat format;
    format.size = {video.width, video.height};
    const AVRational rate = av_guess_frame_rate(container, stream, nullptr);
    if (rate.num > 0 && rate.den > 0) {
        format.rateNumerator = rate.num;
        format.rateDenominator = rate.den;
    }
    format.fullRange = isRgb || isNamedFull || video.color_range == AVCOL_RANGE_JPEG;
    format.isRangeTold = format.fullRange || video.color_range != AVCOL_RANGE_UNSPECIFIED;
    format.matrix = isRgb ? int{AVCOL_SPC_BT470BG} : int{video.color_space};
    format.primaries = video.color_primaries;
    format.transfer = video.color_trc;
    format.chromaPlace = isHalved ? int{video.chroma_location} : int{AVCHROMA_LOC_LEFT};
    format.pixelAspect = av_guess_sample_aspect_ratio(container, stream, nullptr);
    format.tick = stream->time_base;
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

PacketReader::PacketReader(const std::filesystem::path& clip, double folderRate) : file_(clip) {
    // What goes wrong is said in the sentence of the error.
    static const bool isWatched = (av_log_set_callback(&WatchLog), true);
    static_cast<void>(isWatched);
    std::error_code unknown;
    if (std::filesystem::is_directory(clip, unknown)) {
        pictures_ = PicturesIn(clip);
    }
    container_ = OpenContainer(pictures_.empty() ? clip : pictures_[0]);
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
    if (!pictures_.empty()) {
        const AVRational rate = av_d2q(folderRate, 1000000);
        format_.rateNumerator = rate.num;
        format_.rateDenominator = rate.den;
        format_.fullRange = format_.isRangeTold = video.color_range != AVCOL_RANGE_MPEG;
        format_.tick = format_.FrameSeconds();
        indexed_ = static_cast<int64_t>(pictures_.size());
    } else {
        indexed_ = IndexedPackets(stream_);
        promised_ = PromisedSeconds(*container_, *stream_);
    }
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

/// The next of a folder, a whole file.
bool PacketReader::NextPicture(AVPacket& packet) {
    const auto number = static_cast<size_t>(packets_);
    if (number == pictures_.size()) {
        return false;
    }
    std::error_code unread;
    const auto size = std::filesystem::file_size(pictures_[number], unread);
    av_packet_unref(&packet);
    if (!unread && (size > INT_MAX || av_new_packet(&packet, static_cast<int>(size)) < 0)) {
        throw std::bad_alloc();
    }
    std::ifstream in(pictures_[number], std::ios::binary);
    if (unread || size == 0 || !in.read(reinterpret_cast<char*>(packet.data), packet.size)) {
        throw UsageError(fmt::format("{} cannot be read; expected a picture", pictures_[number].string()));
    }
    packet.flags = AV_PKT_FLAG_KEY;
    packet.pts = packets_++;
    packet.duration = 1;
    return true;
}

bool PacketReader::Next(AVPacket& packet) {
    if (!pictures_.empty()) {
        return NextPicture(packet);
    }
    while (!hasEnded_) {
        av_packet_unref(&packet);
        const int error = av_read_frame(container_.get(), &packet);
        if (error < 0) {
            hasEnded_ = true;
            missing_ = FindMissing(error);
        } else if (packet.stream_index == stream_->index && packet.size > 0) {
            Count(packet);
            return true;
        } else if (packet.stream_index != stream_->index) {
            others_.emplace_back(av_packet_clone(&packet));
        }
    }
    return false;
}

std::vector<AvOwned<AVPacket>> PacketReader::TakeOthers(double until) {
    const AvOwned<AVPacket> packet(av_packet_alloc());
    for (double reached = 0; reached < until && !hasEnded_; av_packet_unref(packet.get())) {
        hasEnded_ = av_read_frame(container_.get(), packet.get()) < 0;
        const AVStream* stream = hasEnded_ ? stream_ : container_->streams[packet->stream_index];
        if (packet->dts != AV_NOPTS_VALUE) {
            reached = static_cast<double>(packet->dts) * av_q2d(stream->time_base);
        }
        if (stream != stream_) {
            others_.emplace_back(av_packet_clone(packet.get()));
        }
    }
    return std::exchange(others_, {});
}

int64_t PacketReader::Origin() const {
    const bool isBroadcast = (container_->iformat->flags & AVFMT_TS_DISCONT) != 0;
    return isBroadcast && container_->start_time != AV_NOPTS_VALUE ? container_->start_time : 0;
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
