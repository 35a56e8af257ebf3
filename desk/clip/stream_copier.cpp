#include "desk/clip/stream_copier.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace desk {
namespace {

/// Leaves out tags that describe the file they stand in, as it was encoded.
void CopyTags(const AVDictionary* from, AVDictionary** to) {
    av_dict_copy(to, from, 0);
    for (const char* const key : {"major_brand", "minor_version", "compatible_brands", "encoder", "DURATION",
                                  "BPS", "NUMBER_OF_", "_STATISTICS", "rotate"}) {
        constexpr int Begins = AV_DICT_MATCH_CASE | AV_DICT_IGNORE_SUFFIX;
        while (const AVDictionaryEntry* tag = av_dict_get(*to, key, nullptr, Begins)) {
            av_dict_set(to, tag->key, nullptr, AV_DICT_MATCH_CASE);
        }
    }
}

}  // namespace

StreamCopier::StreamCopier(const ClipReader& source, AVFormatContext& container, bool isTimed, bool isTurned)
    : source_(source), to_(container), copies_(source.Packets().Container().nb_streams) {
    const AVFormatContext& from = source.Packets().Container();
    const AVStream& pictures = source.Packets().Stream();
    const auto lose = [this](bool isLost, const std::string& what) {
        losses_.insert(losses_.end(), isLost ? 1 : 0, what);
    };
    CopyTags(from.metadata, &to_.metadata);
    const bool isQuickTime = std::string(to_.oformat->name) == "mov";  // which FFmpeg gives no cover
    for (size_t i = 0; i < copies_.size(); i++) {
        const AVStream& stream = *from.streams[i];
        const AVCodecParameters& what = *stream.codecpar;
        const char* kind = av_get_media_type_string(what.codec_type);
        const bool isCover = (stream.disposition & AV_DISPOSITION_ATTACHED_PIC) != 0;
        if (&stream == &pictures) {
            pictures_ = AddStream(stream);
        } else if (isTimed && !(isCover && isQuickTime) &&
                   avformat_query_codec(to_.oformat, what.codec_id, FF_COMPLIANCE_EXPERIMENTAL) > 0) {
            copies_[i].stream = AddStream(stream);
            avcodec_parameters_copy(copies_[i].stream->codecpar, &what);
            copies_[i].stream->codecpar->codec_tag = 0;  // other containers have other ones
        } else if (!isTurned || what.codec_tag != MKTAG('t', 'm', 'c', 'd')) {  // made anew from its tag
            lose(true, fmt::format("{} stream {} ({})", kind == nullptr ? "unknown" : kind, i,
                                   avcodec_get_name(what.codec_id)));
        }
    }
    const double rates = av_q2d(pictures.r_frame_rate) / av_q2d(pictures.avg_frame_rate);
    lose(!isTurned && source.Taken() == Orientation::Stored &&
             av_stream_get_side_data(&pictures, AV_PKT_DATA_DISPLAYMATRIX, nullptr) != nullptr,
         "the display matrix");
    lose(!isTimed && std::isfinite(rates) && std::abs(rates - 1) > 0.005, "uneven times of frames");
    lose(!isTimed && from.nb_chapters > 0, "chapters");
    lose(!isTimed && av_dict_count(to_.metadata) > 0, "tags");
    lose(!isTimed && source.Format().transfer != AVCOL_TRC_UNSPECIFIED, "primaries and transfer of colours");
}

AVStream* StreamCopier::AddStream(const AVStream& from) {
    AVStream* to = avformat_new_stream(&to_, nullptr);
    to->time_base = from.time_base;
    to->disposition = from.disposition;
    CopyTags(from.metadata, &to->metadata);
    for (int i = 0; i < from.nb_side_data; i++) {
        const AVPacketSideData& data = from.side_data[i];
        const bool isUndone =
            data.type == AV_PKT_DATA_DISPLAYMATRIX && source_.Taken() == Orientation::Upright;
        uint8_t* copy = isUndone ? nullptr : av_stream_new_side_data(to, data.type, data.size);
        std::copy_n(data.data, copy == nullptr ? 0 : data.size, copy);
    }
    return to;
}

void StreamCopier::Take(const AVPacket& packet) {
    const auto index = static_cast<size_t>(packet.stream_index);
    if (index < copies_.size() && copies_[index].stream != nullptr) {  // broadcasts add streams on their way
        waiting_.emplace_back(av_packet_clone(&packet));
    }
}

int StreamCopier::Write(int64_t begin, int64_t end) {
    for (; !waiting_.empty(); waiting_.pop_front()) {
        AVPacket& packet = *waiting_.front();
        Copy& copy = copies_[static_cast<size_t>(packet.stream_index)];
        AVStream* to = copy.stream;
        const AVStream& from = *source_.Packets().Container().streams[packet.stream_index];
        const AVRational tick = from.time_base;
        if ((from.disposition & AV_DISPOSITION_ATTACHED_PIC) != 0) {  // a cover, which has no time of its own
            packet.pts = av_rescale_q(begin, AV_TIME_BASE_Q, tick);
        }
        packet.dts = packet.dts == AV_NOPTS_VALUE ? packet.pts : packet.dts;
        const int64_t time = av_rescale_q(packet.dts, tick, AV_TIME_BASE_Q);
        if (packet.dts == AV_NOPTS_VALUE || (time < begin && begin != 0)) {
            continue;
        }
        if (time >= end) {
            break;
        }
        av_packet_rescale_ts(&packet, tick, to->time_base);
        // Matroska has what Opus warms up on after zero, and tells how much it is.
        const bool isLate = to->codecpar->codec_id == AV_CODEC_ID_OPUS && to_.avoid_negative_ts == 0;
        const int64_t late =
            isLate ? av_rescale_q(to->codecpar->initial_padding, {1, 48000}, to->time_base) : 0;
        const int64_t shift = av_rescale_q(begin, AV_TIME_BASE_Q, to->time_base) - late;
        // A container takes no packet that is decoded before another one.
        packet.dts = copy.lastTime = std::max(packet.dts - shift, copy.lastTime + 1);
        packet.pts = packet.pts == AV_NOPTS_VALUE ? packet.pts : std::max(packet.pts - shift, packet.dts);
        packet.stream_index = to->index;
        packet.pos = -1;
        if (const int error = av_interleaved_write_frame(&to_, &packet); error < 0) {
            return error;
        }
    }
    return 0;
}

void StreamCopier::AddChapters(int64_t begin, int64_t end) {
    const AVFormatContext& source = source_.Packets().Container();
    to_.chapters = static_cast<AVChapter**>(av_calloc(source.nb_chapters, sizeof(AVChapter*)));
    for (unsigned int i = 0; i < source.nb_chapters && to_.chapters != nullptr; i++) {
        const AVChapter& from = *source.chapters[i];
        const auto place = [&](int64_t time) {
            return std::clamp(av_rescale_q(time, from.time_base, AV_TIME_BASE_Q), begin, end) - begin;
        };
        if (place(from.end) > place(from.start)) {
            auto* chapter = static_cast<AVChapter*>(av_mallocz(sizeof(AVChapter)));
            *chapter = {from.id, AV_TIME_BASE_Q, place(from.start), place(from.end), nullptr};
            CopyTags(from.metadata, &chapter->metadata);
            to_.chapters[to_.nb_chapters++] = chapter;
        }
    }
}

}  // namespace desk
