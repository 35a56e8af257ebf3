#include "desk/clip/clip_writer.h"

#include <fmt/format.h>

#include <fstream>

#include "desk/base/usage_error.h"

namespace desk {

struct ClipWriter::Kind {
    const char* extension;
    const char* container;  ///< null: every packet is a file of its own
    AVCodecID codec;
    AVPixelFormat pixels;
    const char* options;
};

const ClipWriter::Kind& ClipWriter::KindOf(const std::filesystem::path& clip) {
    // Fast rather than small: the encoder shares the cores with a software GL.
    static constexpr Kind Kinds[] = {
        {".mp4", "mp4", AV_CODEC_ID_H264, AV_PIX_FMT_NV12, "preset=veryfast:crf=18"},
        {".mkv", "matroska", AV_CODEC_ID_FFV1, AV_PIX_FMT_YUV420P, "level=3:slices=4:slicecrc=1"},
        {".y4m", "yuv4mpegpipe", AV_CODEC_ID_WRAPPED_AVFRAME, AV_PIX_FMT_YUV420P, ""},
        {"", nullptr, AV_CODEC_ID_PNG, AV_PIX_FMT_RGB24, ""},
    };
    for (const Kind& kind : Kinds) {
        if (clip.extension() == kind.extension) {
            return kind;
        }
    }
    throw UsageError(fmt::format(
        "{} does not say what to write; expected .mp4, .mkv, .y4m, or no extension for a folder of pictures",
        clip.string()));
}

ClipWriter::ClipWriter(const std::filesystem::path& clip, const ClipFormat& format, bool overwrite)
    : kind_(KindOf(clip)),
      format_(format),
      output_(clip, kind_.container == nullptr ? Output::Kind::PictureFolder : Output::Kind::File,
              overwrite) {
    av_log_set_level(AV_LOG_FATAL);  // encoders tell their settings at every start
    if (kind_.container != nullptr) {
        AVFormatContext* container = nullptr;
        Require(avformat_alloc_output_context2(&container, nullptr, kind_.container, nullptr),
                "the container");
        container_.reset(container);
    }
    OpenEncoder();
    if (container_) {
        OpenContainer();
    }
    frame_->format = codec_->pix_fmt;
    frame_->width = codec_->width;
    frame_->height = codec_->height;
    frame_->color_range = codec_->color_range;
    frame_->colorspace = codec_->colorspace;
    Require(av_frame_get_buffer(frame_.get(), 0), "a picture's memory");
}

void ClipWriter::OpenEncoder() {
    const AVCodec* found = avcodec_find_encoder(kind_.codec);
    if (found == nullptr) {
        throw std::runtime_error(fmt::format("{} cannot be written: this FFmpeg has no {} encoder",
                                             output_.Place().string(), avcodec_get_name(kind_.codec)));
    }
    codec_.reset(avcodec_alloc_context3(found));
    codec_->width = format_.size.width;
    codec_->height = format_.size.height;
    codec_->pix_fmt = kind_.pixels;
    codec_->time_base = {format_.rateDenominator, format_.rateNumerator};
    codec_->framerate = {format_.rateNumerator, format_.rateDenominator};
    codec_->thread_count = 0;
    const bool isRgb = kind_.pixels == AV_PIX_FMT_RGB24;
    codec_->color_range = isRgb ? AVCOL_RANGE_JPEG : RangeOf(format_);
    codec_->colorspace = isRgb ? AVCOL_SPC_RGB : static_cast<AVColorSpace>(format_.matrix);
    codec_->chroma_sample_location = isRgb ? AVCHROMA_LOC_UNSPECIFIED : AVCHROMA_LOC_CENTER;
    if (container_ && (container_->oformat->flags & AVFMT_GLOBALHEADER) != 0) {
        codec_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    }
    AVDictionary* options = nullptr;
    av_dict_parse_string(&options, kind_.options, "=", ":", 0);
    const int result = avcodec_open2(codec_.get(), found, &options);
    av_dict_free(&options);
    Require(result, "the encoder does not open");
}

void ClipWriter::OpenContainer() {
    AVStream* stream = avformat_new_stream(container_.get(), nullptr);
    Require(stream == nullptr ? AVERROR(ENOMEM) : 0, "the stream");
    Require(avcodec_parameters_from_context(stream->codecpar, codec_.get()), "the stream");
    stream->time_base = codec_->time_base;
    stream->avg_frame_rate = codec_->framerate;
    Require(avio_open(&container_->pb, ("file:" + output_.Work().string()).c_str(), AVIO_FLAG_WRITE),
            "the file");
    Require(avformat_write_header(container_.get(), nullptr), "the header");
}

void ClipWriter::Add(const Nv12& picture) {
    Require(av_frame_make_writable(frame_.get()), "a picture's memory");
    scaler_.Convert(*ViewOf(picture, format_), *frame_, format_.matrix);
    frame_->pts = pictures_++;
    Send(frame_.get());
}

void ClipWriter::Complete() {
    Send(nullptr);
    if (container_) {
        Require(av_write_trailer(container_.get()), "its end is not stored");
        Require(avio_closep(&container_->pb), "its end is not stored");
    }
}

/// A null picture ends the clip.
void ClipWriter::Send(const AVFrame* picture) {
    Require(avcodec_send_frame(codec_.get(), picture), "a frame is not encoded");
    int result = 0;
    while ((result = avcodec_receive_packet(codec_.get(), packet_.get())) >= 0) {
        Write();
    }
    Require(result == AVERROR(EAGAIN) || result == AVERROR_EOF ? 0 : result, "a frame is not encoded");
}

void ClipWriter::Write() {
    if (!container_) {
        WritePicture();
        av_packet_unref(packet_.get());
        return;
    }
    packet_->duration = 1;
    av_packet_rescale_ts(packet_.get(), codec_->time_base, container_->streams[0]->time_base);
    Require(av_interleaved_write_frame(container_.get(), packet_.get()), "a frame is not stored");
    avio_flush(container_->pb);  // a full disk is noticed at the frame that fills it
    Require(container_->pb->error, "a frame is not stored");
}

void ClipWriter::WritePicture() {
    const std::filesystem::path file = output_.Work() / fmt::format("{:06}.png", packet_->pts + 1);
    std::ofstream out(file, std::ios::binary);
    out.write(reinterpret_cast<const char*>(packet_->data), packet_->size);
    out.close();
    Require(out ? 0 : AVERROR(errno), "a picture is not stored");
}

void ClipWriter::Require(int result, const char* action) const {
    if (result < 0) {
        // FFmpeg's own codes lie far beyond the system's.
        const int system = AVUNERROR(result);
        throw std::runtime_error(fmt::format("{} cannot be written: {}: {}", output_.Place().string(), action,
                                             system < 4096 ? ReasonText(system) : AvText(result)));
    }
}

}  // namespace desk
