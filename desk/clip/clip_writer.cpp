#include "desk/clip/clip_writer.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <limits>
#include <regex>
#include <string_view>

#include "desk/base/usage_error.h"
#include "desk/output/say.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace desk {

struct ClipKind {
    const char* extension;
    const char* container;
    AVCodecID codec;
    bool isTimed;   ///< whether frames have times, and other streams a place
    bool isTurned;  ///< whether it can say how pictures are to be turned
    bool isFolder;  ///< every packet is a file of its own
};

namespace {

/// What an encoder is told. Fast rather than small: it shares the cores with a software GL. Frames stay in
/// their order where MP4 would tell how far apart they are decoded, not shown.
struct EncoderOptions {
    std::string_view encoder;
    const char* options;
};
constexpr EncoderOptions KnownEncoders[] = {
    {"libx264", "preset=veryfast:crf=18:bf=0"},
    {"libx265", "preset=veryfast:crf=20:x265-params=log-level=none\\:bframes=0"},
    {"ffv1", "level=3:slices=4:slicecrc=1"},
    {"libvpx", "deadline=realtime:cpu-used=4:crf=8:b=20M"},
    {"libvpx-vp9", "deadline=realtime:cpu-used=6:row-mt=1:crf=20:b=0"},
    {"libaom-av1", "usage=realtime:cpu-used=8:row-mt=1:crf=20:b=0"},
    {"libsvtav1", "preset=10:crf=24"},
};

/// The encoder's pixel format that takes NV12 with the least loss.
AVPixelFormat PixelsFor(const AVCodec& encoder) {
    if (encoder.pix_fmts == nullptr) {
        return AV_PIX_FMT_YUV420P;
    }
    const auto best = [&encoder](AVPixelFormat pixels) {
        return avcodec_find_best_pix_fmt_of_list(encoder.pix_fmts, pixels, 0, nullptr);
    };
    // Formats of full range alone are as good for NV12 as those of either.
    return best(AV_PIX_FMT_NV12) == AV_PIX_FMT_NV12 ? AV_PIX_FMT_NV12 : best(AV_PIX_FMT_YUV420P);
}

const ClipKind& KindOf(const std::filesystem::path& clip) {
    static constexpr ClipKind Kinds[] = {
        {".mp4", "mp4", AV_CODEC_ID_H264, true, true, false},
        {".mov", "mov", AV_CODEC_ID_H264, true, true, false},
        {".mkv", "matroska", AV_CODEC_ID_FFV1, true, false, false},
        {".webm", "webm", AV_CODEC_ID_VP9, true, false, false},
        {".y4m", "yuv4mpegpipe", AV_CODEC_ID_WRAPPED_AVFRAME, false, false, false},
        {"", "image2", AV_CODEC_ID_PNG, false, false, true},
    };
    std::string extension = clip == StdStream ? ".y4m" : clip.extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char letter) { return std::tolower(letter); });
    for (const ClipKind& kind : Kinds) {
        if (extension == kind.extension) {
            return kind;
        }
    }
    throw UsageError(
        fmt::format("{} does not say what to write; expected .mp4, .mov, .mkv, .webm, .y4m, or no "
                    "extension for a folder of pictures",
                    clip.string()));
}

}  // namespace

ClipWriter::ClipWriter(const std::filesystem::path& clip, const ClipFormat& format, bool overwrite,
                       const Encoding& encoding, const ClipReader* source)
    : kind_(KindOf(clip)), clip_(clip == StdStream ? "stdout" : clip), format_(format) {
    av_log_set_level(AV_LOG_FATAL);  // encoders tell their settings at every start
    AVFormatContext* container = nullptr;
    Require(avformat_alloc_output_context2(&container, nullptr, kind_.container, nullptr), "the container");
    container_.reset(container);
    container_->flags |= AVFMT_FLAG_FLUSH_PACKETS;  // a full disk is noticed at the frame that fills it
    container_->strict_std_compliance = FF_COMPLIANCE_EXPERIMENTAL;
    if (!kind_.isTurned) {
        container_->avoid_negative_ts = 0;  // times stay, and what audio warms up on comes before zero
    }
    const AVCodec* encoder = FindEncoder(encoding);
    if (clip != StdStream) {
        output_.emplace(clip, kind_.isFolder ? Output::Kind::PictureFolder : Output::Kind::File, overwrite);
    }
    OpenEncoder(*encoder, encoding);
    if (source != nullptr) {
        range_ = source->Frames();
        copier_.emplace(*source, *container_, kind_.isTimed, kind_.isTurned);
    }
    OpenContainer();
    if (copier_ && !copier_->Losses().empty()) {
        Say(stderr, "dewarp-desk: {} does not hold {}", clip.string(), fmt::join(copier_->Losses(), ", "));
    }
    frame_->format = AV_PIX_FMT_NV12;
    frame_->width = codec_->width;
    frame_->height = codec_->height;
    frame_->colorspace = format_.matrix;
    Require(av_frame_get_buffer(frame_.get(), 0), "a picture's memory");
}

const AVCodec* ClipWriter::FindEncoder(const Encoding& encoding) const {
    const std::string name = encoding.codec.empty() ? avcodec_get_name(kind_.codec) : encoding.codec;
    const AVCodecDescriptor* codec = avcodec_descriptor_get_by_name(name.c_str());
    const AVCodec* found =
        codec != nullptr ? avcodec_find_encoder(codec->id) : avcodec_find_encoder_by_name(name.c_str());
    if (found == nullptr || found->type != AVMEDIA_TYPE_VIDEO) {
        throw UsageError(
            fmt::format("this FFmpeg has no video encoder {}; expected one for --codec such as "
                        "libx264, libx265, libvpx-vp9 or ffv1",
                        name));
    }
    if (found->id != kind_.codec &&
        (!kind_.isTimed ||
         avformat_query_codec(container_->oformat, found->id, FF_COMPLIANCE_EXPERIMENTAL) <= 0)) {
        throw UsageError(
            fmt::format("{} does not hold {}; expected {}", clip_.string(), avcodec_get_name(found->id),
                        kind_.isTimed ? fmt::format("a --codec such as {}", avcodec_get_name(kind_.codec))
                                      : "no --codec"));
    }
    return found;
}

void ClipWriter::OpenEncoder(const AVCodec& encoder, const Encoding& encoding) {
    codec_.reset(avcodec_alloc_context3(&encoder));
    codec_->width = format_.size.width;
    codec_->height = format_.size.height;
    codec_->pix_fmt = PixelsFor(encoder);
    const bool isCoarse = encoder.id == AV_CODEC_ID_MPEG4 && format_.tick.den > 65535;  // it has 16 bits
    codec_->framerate = format_.rate;
    codec_->time_base = !kind_.isTimed || format_.tick.num == 0 ? av_inv_q(format_.rate)
                        : isCoarse                              ? AVRational{1, 60000}
                                                                : format_.tick;
    codec_->thread_count = 0;
    const bool isRgb = (av_pix_fmt_desc_get(codec_->pix_fmt)->flags & AV_PIX_FMT_FLAG_RGB) != 0;
    codec_->color_range = isRgb ? AVCOL_RANGE_JPEG : format_.range;
    codec_->colorspace = isRgb ? AVCOL_SPC_RGB : format_.matrix;
    codec_->color_primaries = format_.primaries;
    codec_->color_trc = format_.transfer;
    codec_->chroma_sample_location = isRgb ? AVCHROMA_LOC_UNSPECIFIED : format_.chromaPlace;
    codec_->sample_aspect_ratio = format_.pixelAspect;
    codec_->strict_std_compliance = FF_COMPLIANCE_UNOFFICIAL;  // limited range in JPEG
    if ((container_->oformat->flags & AVFMT_GLOBALHEADER) != 0) {
        codec_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    }
    AVDictionary* options = nullptr;
    for (const auto& known : KnownEncoders) {
        if (known.encoder == encoder.name) {
            av_dict_parse_string(&options, known.options, "=", ":", 0);
        }
    }
    if (encoding.crf) {
        av_dict_set_int(&options, "crf", *encoding.crf, 0);
    } else if (av_dict_count(options) == 0) {
        codec_->flags |= AV_CODEC_FLAG_QSCALE;  // good, whatever it takes
        codec_->global_quality = 2 * FF_QP2LAMBDA;
    }
    const int result = avcodec_open2(codec_.get(), &encoder, &options);
    const bool isCrfUnknown = av_dict_get(options, "crf", nullptr, 0) != nullptr;
    av_dict_free(&options);
    if (encoding.crf && (result < 0 || isCrfUnknown)) {
        throw UsageError(fmt::format("--crf: the encoder {} does not take {}{}", encoder.name, *encoding.crf,
                                     isCrfUnknown ? ", it has no such setting" : ""));
    }
    Require(result, fmt::format("the encoder {} does not open", encoder.name));
}

void ClipWriter::OpenContainer() {
    stream_ = copier_ ? copier_->Pictures() : avformat_new_stream(container_.get(), nullptr);
    Require(stream_ == nullptr ? AVERROR(ENOMEM) : 0, "the stream");
    Require(avcodec_parameters_from_context(stream_->codecpar, codec_.get()), "the stream");
    stream_->time_base = codec_->time_base;
    stream_->avg_frame_rate = codec_->framerate;
    stream_->sample_aspect_ratio = codec_->sample_aspect_ratio;
    AVDictionary* options = nullptr;
    if (kind_.isTurned) {
        av_dict_set_int(&options, "movie_timescale", std::max(codec_->time_base.den, 1000), 0);
        // Other tags than these have no place for a phone's, and these none for a cover.
        const bool hasCover = std::any_of(
            container_->streams, container_->streams + container_->nb_streams,
            [](const AVStream* stream) { return (stream->disposition & AV_DISPOSITION_ATTACHED_PIC) != 0; });
        av_dict_set(&options, "movflags", hasCover ? "0" : "use_metadata_tags", 0);
    }
    std::string url = output_ ? "file:" + output_->Work().string() : "pipe:1";
    int result = 0;
    if (kind_.isFolder) {  // whose muxer opens its files itself
        url = std::regex_replace(url, std::regex("%"), "%%") + "/%06d.png";
        container_->url = av_strdup(url.c_str());
    } else {
        result = avio_open(&container_->pb, url.c_str(), AVIO_FLAG_WRITE);
    }
    result = result < 0 ? result : avformat_write_header(container_.get(), &options);
    av_dict_free(&options);
    Require(result, "the header");
}

void ClipWriter::CopyOthers(int64_t end) {
    Require(copier_ ? copier_->Write(begin_, end) : 0, "another stream is not stored");
}

void ClipWriter::Add(const Nv12& picture, std::optional<FrameTime> time) {
    const auto microseconds = [this](int64_t frames) {
        return av_rescale_q(frames, av_inv_q(format_.rate), AV_TIME_BASE_Q);
    };
    last_ = time.value_or(FrameTime{microseconds(pictures_), microseconds(1)});
    begin_ = pictures_ == 0 && range_.first > 0 ? last_.start : begin_;
    CopyOthers(last_.start);
    Require(av_frame_make_writable(frame_.get()), "a picture's memory");
    Nv12 planes = PlanesOf(*frame_);
    picture.luma.copyTo(planes.luma);
    picture.chroma.copyTo(planes.chroma);
    const auto ticks = [this](int64_t span) { return av_rescale_q(span, AV_TIME_BASE_Q, codec_->time_base); };
    frame_->pts = kind_.isTimed ? ticks(last_.start - begin_) : pictures_;
    durations_[frame_->pts] = kind_.isTimed ? ticks(last_.duration) : 1;
    pictures_++;
    const bool isTaken = codec_->pix_fmt == AV_PIX_FMT_NV12;
    Send(isTaken ? frame_.get()
                 : &graph_.Filter(*frame_, Scaling(format_.size, codec_->pix_fmt, format_.range)));
}

void ClipWriter::Complete(bool isCutOff) {
    Send(nullptr);
    const bool isWhole = !isCutOff && range_.end == FrameRange().end;
    const int64_t end = isWhole ? std::numeric_limits<int64_t>::max() : last_.start + last_.duration;
    CopyOthers(end);
    if (copier_) {
        copier_->AddChapters(begin_, end);
    }
    Require(av_write_trailer(container_.get()), "its end is not stored");
    Require(avio_closep(&container_->pb), "its end is not stored");
}

void ClipWriter::Publish() {
    if (output_) {
        output_->Publish();
    }
}

/// A null picture ends the clip.
void ClipWriter::Send(const AVFrame* picture) {
    Require(avcodec_send_frame(codec_.get(), picture), "a frame is not encoded");
    int result = 0;
    while ((result = avcodec_receive_packet(codec_.get(), packet_.get())) >= 0) {
        packet_->duration = durations_[packet_->pts];
        durations_.erase(packet_->pts);
        packet_->stream_index = stream_->index;
        av_packet_rescale_ts(packet_.get(), codec_->time_base, stream_->time_base);
        Require(av_interleaved_write_frame(container_.get(), packet_.get()), "a frame is not stored");
    }
    Require(result == AVERROR(EAGAIN) || result == AVERROR_EOF ? 0 : result, "a frame is not encoded");
}

void ClipWriter::Require(int result, const std::string& action) const {
    if (result < 0) {
        // FFmpeg's own codes lie far beyond the system's.
        const int system = AVUNERROR(result);
        throw std::runtime_error(fmt::format("{} cannot be written: {}: {}", clip_.string(), action,
                                             system < 4096 ? ReasonText(system) : AvText(result)));
    }
}

}  // namespace desk
