#include "desk/clip/stream_copier.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <string_view>

namespace desk {
namespace {

/// Leaves out tags that describe the file they stand in, as it was encoded.
void CopyTags(const AVDictionary* from, AVDictionary** to) {
    constexpr std::array<std::string_view, 9> OfTheFile = {
        "major_brand", "minor_version", "compatible_brands", "encoder", "DURATION",
        "BPS",         "NUMBER_OF_",    "_STATISTICS",       "rotate"};
    const AVDictionaryEntry* tag = nullptr;
    while ((tag = av_dict_get(from, "", tag, AV_DICT_IGNORE_SUFFIX)) != nullptr) {
        const std::string_view key = tag->key;
        if (std::none_of(OfTheFile.begin(), OfTheFile.end(),
                         [key](auto name) { return key.rfind(name, 0) == 0; })) {
            av_dict_set(to, tag->key, tag->value, 0);
        }
    }
}

}  // namespace

StreamCopier::StreamCopier(const ClipReader& source, AVFormatContext& container)
    : source_(source), to_(container) {
    const AVFormatContext& from = source.Packets().Container();
    copies_.resize(from.nb_streams);
    lastTimes_.resize(from.nb_streams, std::numeric_limits<int64_t>::min());
    CopyTags(from.metadata, &to_.metadata);
    hasTags_ = av_dict_count(to_.metadata) > 0;
    for (unsigned int i = 0; i < from.nb_streams; i++) {
        AddStream(*from.streams[i]);
    }
}

void StreamCopier::AddStream(AVStream& from) {
    const AVStream& pictures = source_.Packets().Stream();
    const AVCodecParameters& what = *from.codecpar;
    const bool isPictures = &from == &pictures;
    if (!isPictures && avformat_query_codec(to_.oformat, what.codec_id, FF_COMPLIANCE_EXPERIMENTAL) <= 0) {
        const char* kind = av_get_media_type_string(what.codec_type);
        leftOut_.push_back(fmt::format("{} stream {} ({})", kind == nullptr ? "unknown" : kind, from.index,
                                       avcodec_get_name(what.codec_id)));
        missing_ += from.index < pictures.index ? 1 : 0;
        return;
    }
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
    if (isPictures) {
        return;
    }
    copies_[static_cast<size_t>(from.index)] = to;
    avcodec_parameters_copy(to->codecpar, &what);
    to->codecpar->codec_tag = 0;  // other containers have other ones
}

std::string StreamCopier::Losses(bool isTimed, bool isTurned) const {
    const AVStream& pictures = source_.Packets().Stream();
    const bool isRotated = av_stream_get_side_data(&pictures, AV_PKT_DATA_DISPLAYMATRIX, nullptr) != nullptr;
    const double rates = av_q2d(pictures.r_frame_rate) / av_q2d(pictures.avg_frame_rate);
    const std::pair<bool, const char*> losses[] = {
        {!isTurned && isRotated && source_.Taken() == Orientation::Stored, "the display matrix"},
        {!isTimed && std::isfinite(rates) && std::abs(rates - 1) > 0.005, "uneven times of frames"},
        {!isTimed && source_.Packets().Container().nb_chapters > 0, "chapters"},
        {!isTimed && hasTags_, "tags"},
        {!isTimed && source_.Format().transfer != AVCOL_TRC_UNSPECIFIED, "primaries and transfer of colours"},
    };
    std::vector<std::string> all = leftOut_;
    for (const auto& [isLost, what] : losses) {
        all.insert(all.end(), isLost ? 1 : 0, what);
    }
    return fmt::format("{}", fmt::join(all, ", "));
}

int StreamCopier::Write(int64_t begin, int64_t end) {
    for (; !waiting_.empty(); waiting_.pop_front()) {
        AVPacket& packet = *waiting_.front();
        const auto index = static_cast<size_t>(packet.stream_index);
        const AVStream* to = index < copies_.size() ? copies_[index] : nullptr;
        packet.dts = packet.dts == AV_NOPTS_VALUE ? packet.pts : packet.dts;
        if (to == nullptr || packet.dts == AV_NOPTS_VALUE) {
            continue;
        }
        const AVRational tick = source_.Packets().Container().streams[index]->time_base;
        const int64_t origin = source_.Packets().Origin();
        const int64_t time = av_rescale_q(packet.dts, tick, AV_TIME_BASE_Q) - origin;
        if (time >= end) {
            break;
        }
        if (time < begin && begin != 0) {
            continue;
        }
        av_packet_rescale_ts(&packet, tick, to->time_base);
        // Matroska has what Opus warms up on after zero, and tells how much it is.
        const bool isLate = to->codecpar->codec_id == AV_CODEC_ID_OPUS && to_.avoid_negative_ts == 0;
        const int64_t late =
            isLate ? av_rescale_q(to->codecpar->initial_padding, {1, 48000}, to->time_base) : 0;
        const int64_t shift = av_rescale_q(origin + begin, AV_TIME_BASE_Q, to->time_base) - late;
        // A container takes no packet that is decoded before another one.
        packet.dts = lastTimes_[index] = std::max(packet.dts - shift, lastTimes_[index] + 1);
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
            const int64_t at =
                av_rescale_q(time, from.time_base, AV_TIME_BASE_Q) - source_.Packets().Origin();
            return std::clamp(at, begin, end) - begin;
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
