#include "desk/clip/packet_reader.h"

#include <fmt/format.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdarg>
#include <cstring>

#include "desk/base/usage_error.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace desk {
namespace {

using Path = std::filesystem::path;

AVCodecID PictureKind(const Path& file) {
    const AVOutputFormat* pictures = av_guess_format("image2", nullptr, nullptr);
    const std::string extensions = std::string(pictures->extensions) + ",webp";
    return av_match_ext(file.c_str(), extensions.c_str()) != 0
               ? av_guess_codec(pictures, nullptr, file.c_str(), nullptr, AVMEDIA_TYPE_VIDEO)
               : AV_CODEC_ID_NONE;
}

/// In natural order, 9.png before 10.png: all files whose extension, in any case, is one of pictures, but for
/// hidden ones.
std::vector<Path> PicturesIn(const Path& folder) {
    std::vector<Path> pictures;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        if (entry.path().filename().string()[0] != '.' && PictureKind(entry.path()) != AV_CODEC_ID_NONE) {
            pictures.push_back(entry.path());
        }
    }
    if (pictures.empty()) {
        throw UsageError(
            fmt::format("{} is a folder without pictures; expected such as 1.png, 2.png or "
                        "IMG_0001.JPG",
                        folder.string()));
    }
    std::sort(pictures.begin(), pictures.end(),
              [](const Path& a, const Path& b) { return strverscmp(a.c_str(), b.c_str()) < 0; });
    for (const Path& file : pictures) {
        if (PictureKind(file) != PictureKind(pictures[0])) {
            throw UsageError(fmt::format("{} and {} are of different kinds; expected one kind in a folder",
                                         pictures[0].string(), file.string()));
        }
    }
    return pictures;
}

/// "-" is the clip on stdin.
AvOwned<AVFormatContext> OpenContainer(const Path& clip) {
    AVFormatContext* container = nullptr;
    const std::string url = clip == StdStream ? "pipe:0" : "file:" + clip.string();
    int error = avformat_open_input(&container, url.c_str(), nullptr, nullptr);
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
    if (error < 0) {
        throw UsageError(
            clip.string() +
            (error == AVERROR(ENOENT)
                 ? " does not exist; expected a clip"
                 : fmt::format(
                       " is not a clip ({}); expected a video that FFmpeg reads, or a folder of pictures",
                       AvText(error))));
    }
    return owned;
}

/// Both kinds of context carry the flag of the reader they belong to, on whichever thread they complain;
/// other contexts carry none.
void WatchLog(void* source, int level, const char* /*format*/, va_list /*arguments*/) {
    const AVClass* kind = source == nullptr ? nullptr : *static_cast<AVClass**>(source);
    void* flag = kind == nullptr                ? nullptr
                 : kind == avcodec_get_class()  ? static_cast<AVCodecContext*>(source)->opaque
                 : kind == avformat_get_class() ? static_cast<AVFormatContext*>(source)->opaque
                                                : nullptr;
    if (flag != nullptr && level <= AV_LOG_ERROR) {
        *static_cast<std::atomic<bool>*>(flag) = true;
    }
}

ClipFormat FormatOf(AVFormatContext* container, AVStream* stream) {
    const AVCodecParameters& video = *stream->codecpar;
    const AVPixFmtDescriptor* pixels = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(video.format));
    const bool isRgb = (pixels->flags & AV_PIX_FMT_FLAG_RGB) != 0;
    const bool isNamedFull = std::string(pixels->name).rfind("yuvj", 0) == 0;
    const bool isHalved = pixels->log2_chroma_w == 1 && pixels->log2_chroma_h == 1;
    const AVRational rate = av_guess_frame_rate(container, stream, nullptr);
    return {{video.width, video.height},
            rate.num > 0 && rate.den > 0 ? rate : ClipFormat().rate,
            isRgb || isNamedFull ? AVCOL_RANGE_JPEG : video.color_range,
            isRgb ? AVCOL_SPC_BT470BG : video.color_space,
            video.color_primaries,
            video.color_trc,
            isHalved ? video.chroma_location : AVCHROMA_LOC_LEFT,
            av_guess_sample_aspect_ratio(container, stream, nullptr),
            stream->time_base};
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

PacketReader::PacketReader(const Path& clip, double folderRate) : file_(clip) {
    // What goes wrong is said in the sentence of the error.
    static const bool isWatched = (av_log_set_callback(&WatchLog), true);
    static_cast<void>(isWatched);
    std::error_code unknown;
    if (std::filesystem::is_directory(clip, unknown)) {
        pictures_ = PicturesIn(clip);
    }
    container_ = OpenContainer(pictures_.empty() ? clip : pictures_[0]);
    const int index = av_find_best_stream(container_.get(), AVMEDIA_TYPE_VIDEO, -1, -1, &codec_, 0);
    stream_ = index < 0 || codec_ == nullptr ? nullptr : container_->streams[index];
    if (stream_ == nullptr || stream_->codecpar->width <= 0 || stream_->codecpar->height <= 0 ||
        stream_->codecpar->format == AV_PIX_FMT_NONE) {
        throw UsageError(fmt::format(
            "{} has no {}; expected a clip", clip.string(),
            stream_ == nullptr ? "video stream that can be decoded" : "picture in its video stream"));
    }
    format_ = FormatOf(container_.get(), stream_);
    if (pictures_.empty()) {
        indexed_ = IndexedPackets(stream_);
        promised_ = PromisedSeconds(*container_, *stream_);
    } else {
        indexed_ = static_cast<int64_t>(pictures_.size());
        format_.rate = av_d2q(folderRate, 1000000);
        format_.tick = av_inv_q(format_.rate);
        format_.range = format_.range == AVCOL_RANGE_MPEG ? AVCOL_RANGE_UNSPECIFIED : AVCOL_RANGE_JPEG;
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
    return std::llround(static_cast<double>(container_->duration) / AV_TIME_BASE * av_q2d(format_.rate));
}

/// The next of a folder, a whole file.
bool PacketReader::NextPicture(AVPacket& packet) {
    const auto number = static_cast<size_t>(packets_);
    if (number == pictures_.size()) {
        return false;
    }
    const std::string url = "file:" + pictures_[number].string();
    AVIOContext* in = nullptr;
    av_packet_unref(&packet);
    if (avio_open(&in, url.c_str(), AVIO_FLAG_READ) >= 0) {
        av_get_packet(in, &packet, static_cast<int>(std::min<int64_t>(avio_size(in), INT_MAX)));
        avio_closep(&in);
    }
    if (packet.size == 0) {
        throw UsageError(fmt::format("{} cannot be read; expected a picture", pictures_[number].string()));
    }
    packet.flags |= AV_PKT_FLAG_KEY;
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
        } else if (packet.stream_index != stream_->index) {
            Rebase(packet);
            others_.emplace_back(av_packet_clone(&packet));
        } else if (packet.size > 0) {
            Count(packet);
            Rebase(packet);
            return true;
        }
    }
    return false;
}

std::vector<AvOwned<AVPacket>> PacketReader::TakeOthers(int64_t until) {
    const AvOwned<AVPacket> packet(av_packet_alloc());
    for (int64_t reached = 0; container_->nb_streams > 1 && reached < until && Next(*packet);) {
        reached = packet->dts == AV_NOPTS_VALUE
                      ? reached
                      : av_rescale_q(packet->dts, stream_->time_base, AV_TIME_BASE_Q);
    }
    return std::exchange(others_, {});
}

void PacketReader::Count(const AVPacket& packet) {
    packets_++;
    end_ = packet.pos + packet.size;
    const int64_t time = packet.pts != AV_NOPTS_VALUE ? packet.pts : packet.dts;
    if (time != AV_NOPTS_VALUE) {
        const double tick = av_q2d(stream_->time_base);
        const int64_t start = stream_->start_time != AV_NOPTS_VALUE ? stream_->start_time : 0;
        const double length =
            packet.duration > 0 ? static_cast<double>(packet.duration) * tick : 1 / av_q2d(format_.rate);
        reached_ = std::max(reached_, static_cast<double>(time - start) * tick + length);
    }
}

/// Clocks of broadcasts run all day; others begin with the clip.
void PacketReader::Rebase(AVPacket& packet) const {
    const bool isBroadcast = (container_->iformat->flags & AVFMT_TS_DISCONT) != 0;
    if (isBroadcast && container_->start_time != AV_NOPTS_VALUE) {
        const int64_t origin = av_rescale_q(container_->start_time, AV_TIME_BASE_Q,
                                            container_->streams[packet.stream_index]->time_base);
        packet.pts -= packet.pts != AV_NOPTS_VALUE ? origin : 0;
        packet.dts -= packet.dts != AV_NOPTS_VALUE ? origin : 0;
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
    const double frameRate = av_q2d(format_.rate);
    const double tolerance = isNoisy ? 0.75 / frameRate : 0.5;  // seconds
    if (reached_ + tolerance >= promised_) {
        return {};
    }
    return {fmt::format("it ends after {:.2f} of the {:.2f} seconds that its header promises", reached_,
                        promised_),
            std::llround((promised_ - reached_) * frameRate)};
}

}  // namespace desk
