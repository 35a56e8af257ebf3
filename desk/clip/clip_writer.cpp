#include "desk/clip/clip_writer.h"

#include <fmt/format.h>

#include <cstdio>
#include <fstream>
#include <utility>

#include "desk/base/usage_error.h"
#include "desk/clip/av_handles.h"
#include "desk/output/output.h"

namespace desk {
namespace {

struct ClipKind {
    const char* extension;
    const char* container;  ///< null: every packet is a file of its own
    AVCodecID codec;
    AVPixelFormat pixels;
    const char* options;
};

// Fast rather than small: the encoder shares the cores with a software GL.
constexpr ClipKind Kinds[] = {
    {".mp4", "mp4", AV_CODEC_ID_H264, AV_PIX_FMT_NV12, "preset=veryfast:crf=18"},
    {".mkv", "matroska", AV_CODEC_ID_FFV1, AV_PIX_FMT_YUV420P, "level=3:slices=4:slicecrc=1"},
    {".y4m", "yuv4mpegpipe", AV_CODEC_ID_WRAPPED_AVFRAME, AV_PIX_FMT_YUV420P, ""},
    {"", nullptr, AV_CODEC_ID_PNG, AV_PIX_FMT_RGB24, ""},
};

const ClipKind& KindOf(const std::filesystem::path& clip) {
    for (const ClipKind& kind : Kinds) {
        if (clip.extension() == kind.extension) {
            return kind;
        }
    }
    throw UsageError(fmt::format(
        "{} does not say what to write; expected .mp4, .mkv, .y4m, or no extension for a folder of pictures",
        clip.string()));
}

Output::Kind PlaceOf(const ClipKind& kind) {
    return kind.container == nullptr ? Output::Kind::PictureFolder : Output::Kind::File;
}

}  // namespace

struct ClipWriter::Encoder {
    Encoder(std::filesystem::path clip, const ClipFormat& wanted, bool overwrite);
    ~Encoder();
    void OpenEncoder();
    void OpenContainer();
    void Send(const AVFrame* picture);
    void Write();
    void WritePicture();
    void Require(int result, const char* action) const;

    const ClipKind& kind;
    ClipFormat format;
    Output place;
    AvOwned<AVCodecContext> codec;
    AVFormatContext* container = nullptr;
    AvOwned<AVFrame> frame{av_frame_alloc()};
    AvOwned<AVPacket> packet{av_packet_alloc()};
    AvScaler scaler;
    int64_t pictures = 0;
};

void ClipWriter::Encoder::Require(int result, const char* action) const {
    if (result < 0) {
        // FFmpeg's own codes lie far beyond the system's.
        const int system = AVUNERROR(result);
        throw std::runtime_error(fmt::format("{} cannot be written: {}: {}", place.Place().string(), action,
                                             system < 4096 ? ReasonText(system) : AvText(result)));
    }
}

ClipWriter::Encoder::Encoder(std::filesystem::path clip, const ClipFormat& wanted, bool overwrite)
    : kind(KindOf(clip)), format(wanted), place(std::move(clip), PlaceOf(kind), overwrite) {
    av_log_set_level(AV_LOG_FATAL);  // encoders tell their settings at every start
    if (kind.container != nullptr) {
        Require(avformat_alloc_output_context2(&container, nullptr, kind.container, nullptr),
                "the container");
    }
    OpenEncoder();
    if (container != nullptr) {
        OpenContainer();
    }
    frame->format = codec->pix_fmt;
    frame->width = codec->width;
    frame->height = codec->height;
    frame->color_range = codec->color_range;
    frame->colorspace = codec->colorspace;
    Require(av_frame_get_buffer(frame.get(), 0), "a picture's memory");
}

ClipWriter::Encoder::~Encoder() {
    if (container != nullptr) {
        avio_closep(&container->pb);
        avformat_free_context(container);
    }
}

void ClipWriter::Encoder::OpenEncoder() {
    const AVCodec* found = avcodec_find_encoder(kind.codec);
    if (found == nullptr) {
        throw std::runtime_error(fmt::format("{} cannot be written: this FFmpeg has no {} encoder",
                                             place.Place().string(), avcodec_get_name(kind.codec)));
    }
    codec.reset(avcodec_alloc_context3(found));
    codec->width = format.size.width;
    codec->height = format.size.height;
    codec->pix_fmt = kind.pixels;
    codec->time_base = {format.rateDenominator, format.rateNumerator};
    codec->framerate = {format.rateNumerator, format.rateDenominator};
    codec->thread_count = 0;
    const bool isRgb = kind.pixels == AV_PIX_FMT_RGB24;
    codec->color_range = isRgb || format.fullRange ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
    codec->colorspace = isRgb ? AVCOL_SPC_RGB : static_cast<AVColorSpace>(format.matrix);
    codec->chroma_sample_location = isRgb ? AVCHROMA_LOC_UNSPECIFIED : AVCHROMA_LOC_CENTER;
    if (container != nullptr && (container->oformat->flags & AVFMT_GLOBALHEADER) != 0) {
        codec->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    }
    AVDictionary* options = nullptr;
    av_dict_parse_string(&options, kind.options, "=", ":", 0);
    const int result = avcodec_open2(codec.get(), found, &options);
    av_dict_free(&options);
    Require(result, "the encoder does not open");
}

void ClipWriter::Encoder::OpenContainer() {
    AVStream* stream = avformat_new_stream(container, nullptr);
    Require(stream == nullptr ? AVERROR(ENOMEM) : 0, "the stream");
    Require(avcodec_parameters_from_context(stream->codecpar, codec.get()), "the stream");
    stream->time_base = codec->time_base;
    stream->avg_frame_rate = codec->framerate;
    Require(avio_open(&container->pb, ("file:" + place.Work().string()).c_str(), AVIO_FLAG_WRITE),
            "the file");
    Require(avformat_write_header(container, nullptr), "the header");
}

/// A null picture ends the clip.
void ClipWriter::Encoder::Send(const AVFrame* picture) {
    Require(avcodec_send_frame(codec.get(), picture), "a frame is not encoded");
    int result = 0;
    while ((result = avcodec_receive_packet(codec.get(), packet.get())) >= 0) {
        Write();
    }
    Require(result == AVERROR(EAGAIN) || result == AVERROR_EOF ? 0 : result, "a frame is not encoded");
}

void ClipWriter::Encoder::Write() {
    if (container == nullptr) {
        WritePicture();
        av_packet_unref(packet.get());
        return;
    }
    packet->duration = 1;
    av_packet_rescale_ts(packet.get(), codec->time_base, container->streams[0]->time_base);
    Require(av_interleaved_write_frame(container, packet.get()), "a frame is not stored");
    avio_flush(container->pb);  // a full disk is noticed at the frame that fills it
    Require(container->pb->error, "a frame is not stored");
}

void ClipWriter::Encoder::WritePicture() {
    const std::filesystem::path file = place.Work() / fmt::format("{:06}.png", packet->pts + 1);
    std::ofstream out(file, std::ios::binary);
    out.write(reinterpret_cast<const char*>(packet->data), packet->size);
    out.close();
    Require(out ? 0 : AVERROR(errno), "a picture is not stored");
}

ClipWriter::ClipWriter(std::filesystem::path clip, const ClipFormat& format, bool overwrite)
    : encoder_(std::make_unique<Encoder>(std::move(clip), format, overwrite)) {}

ClipWriter::~ClipWriter() = default;

void ClipWriter::Add(const Nv12& picture) {
    Encoder& encoder = *encoder_;
    AVFrame& frame = *encoder.frame;
    encoder.Require(av_frame_make_writable(&frame), "a picture's memory");
    const AvPlanes planes(picture);
    const bool isFull = encoder.codec->color_range == AVCOL_RANGE_JPEG;
    encoder.scaler.Convert({picture.luma.cols, picture.luma.rows, AV_PIX_FMT_NV12, encoder.format.fullRange},
                           planes.data, planes.stride,
                           {frame.width, frame.height, encoder.kind.pixels, isFull}, frame.data,
                           frame.linesize, encoder.format.matrix);
    frame.pts = encoder.pictures++;
    encoder.Send(&frame);
}

void ClipWriter::Complete() {
    Encoder& encoder = *encoder_;
    encoder.Send(nullptr);
    if (encoder.container != nullptr) {
        encoder.Require(av_write_trailer(encoder.container), "its end is not stored");
        encoder.Require(avio_closep(&encoder.container->pb), "its end is not stored");
    }
}

void ClipWriter::Publish() {
    encoder_->place.Publish();
}

void ClipWriter::Finish() {
    Complete();
    Publish();
}

}  // namespace desk
