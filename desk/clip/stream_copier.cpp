#include "desk/clip/stream_copier.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <limits>
#include <numeric>
#include <string_view>

#include "desk/clip/container.h"

namespace desk {
namespace {

/// Tags that describe the file they stand in, as it was encoded.
bool IsOfTheFile(std::string_view key) {
    constexpr std::array<std::string_view, 9> Keys = {"major_brand", "minor_version", "compatible_brands",
                                                      "encoder",     "DURATION",      "BPS",
                                                      "NUMBER_OF_",  "_STATISTICS",   "rotate"};
    return std::any_of(Keys.begin(), Keys.end(), [key](auto begin) { return key.rfind(begin, 0) == 0; });
}

void CopyTags(const AVDictionary* from, AVDictionary** to) {
    const AVDictionaryEntry* tag = nullptr;
    while ((tag = av_dict_get(from, "", tag, AV_DICT_IGNORE_SUFFIX)) != nullptr) {
        if (!IsOfTheFile(tag->key)) {
            av_dict_set(to, tag->key, tag->value, 0);
        }
    }
}

std::string Describe(const AVStream& stream) {
    const char* kind = av_get_media_type_string(stream.codecpar->codec_type);
    return fmt::format("{} stream {} ({})", kind == nullptr ? "unknown" : kind, stream.index,
                       avcodec_get_name(stream.codecpar->codec_id));
}

int64_t Microseconds(int64_t time, const AVStream& stream) {
    return av_rescale_q(time, stream.time_base, AV_TIME_BASE_Q);
}

}  // namespace

StreamCopier::StreamCopier(const ClipSource& source, AVFormatContext& container)
    : source_(source), from_(OpenContainer(source.clip)), to_(container), origin_(OriginOf(*from_)) {
    const AVStream* pictures = sourcePictures_ = PicturesOf(*from_, source.clip);
    copies_.resize(from_->nb_streams);
    lastTimes_.resize(from_->nb_streams, std::numeric_limits<int64_t>::min());
    CopyTags(from_->metadata, &to_.metadata);
    for (unsigned int i = 0; i < from_->nb_streams; i++) {
        AVStream& from = *from_->streams[i];
        const bool isTaken = &from == pictures || avformat_query_codec(to_.oformat, from.codecpar->codec_id,
                                                                       FF_COMPLIANCE_EXPERIMENTAL) > 0;
        if (isTaken) {
            AddStream(from);
        } else {
            leftOut_.push_back(Describe(from));
        }
        from.discard = isTaken && &from != pictures ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
    }
    pictures_ = std::exchange(copies_[static_cast<size_t>(pictures->index)], nullptr);
    std::vector<AVPacketSideDataType> kept = {AV_PKT_DATA_MASTERING_DISPLAY_METADATA,
                                              AV_PKT_DATA_CONTENT_LIGHT_LEVEL, AV_PKT_DATA_STEREO3D,
                                              AV_PKT_DATA_SPHERICAL};
    if (source.orientation == Orientation::Stored) {
        kept.push_back(AV_PKT_DATA_DISPLAYMATRIX);
    }
    for (const AVPacketSideDataType type : kept) {
        size_t size = 0;
        const uint8_t* data = av_stream_get_side_data(pictures, type, &size);
        uint8_t* copy = data == nullptr ? nullptr : av_stream_new_side_data(pictures_, type, size);
        std::copy_n(data, copy == nullptr ? 0 : size, copy);
    }
}

void StreamCopier::AddStream(AVStream& from) {
    AVStream* to = avformat_new_stream(&to_, nullptr);
    copies_[static_cast<size_t>(from.index)] = to;
    avcodec_parameters_copy(to->codecpar, from.codecpar);
    to->codecpar->codec_tag = 0;  // other containers have other ones
    to->time_base = from.time_base;
    to->disposition = from.disposition;
    CopyTags(from.metadata, &to->metadata);
    // What an audio decoder warms up on stands before the beginning.
    const AVIndexEntry* first = avformat_index_get_entry(&from, 0);
    if (from.codecpar->codec_type == AVMEDIA_TYPE_AUDIO && first != nullptr && first->timestamp < 0 &&
        to->codecpar->initial_padding == 0) {
        to->codecpar->initial_padding = static_cast<int>(
            av_rescale_q(-first->timestamp, from.time_base, {1, from.codecpar->sample_rate}));
    }
}

std::string StreamCopier::Losses(bool isTimed, bool isTurned) {
    std::vector<std::string> losses = leftOut_;
    const AVCodecParameters& video = *sourcePictures_->codecpar;
    const auto lose = [&losses](bool isLost, const std::string& what) {
        if (isLost) {
            losses.push_back(what);
        }
    };
    const bool isRotated = av_stream_get_side_data(sourcePictures_, AV_PKT_DATA_DISPLAYMATRIX, nullptr) != nullptr;
    lose(!isTurned && isRotated && source_.orientation == Orientation::Stored, "the display matrix");
    lose(!isTimed && HasUnevenTimes(), "the uneven times of frames, each is as long as another");
    lose(!isTimed && from_->nb_chapters > 0, "chapters");
    lose(!isTimed && av_dict_count(to_.metadata) > 0, "tags");
    lose(!isTimed && video.color_trc != AVCOL_TRC_UNSPECIFIED, "primaries and transfer of colours");
    return fmt::format("{}", fmt::join(losses, ", "));
}

/// Looks at all packets of the pictures.
bool StreamCopier::HasUnevenTimes() {
    sourcePictures_->discard = AVDISCARD_DEFAULT;
    std::vector<int64_t> times;
    while (av_read_frame(from_.get(), packet_.get()) >= 0) {
        if (packet_->stream_index == sourcePictures_->index && packet_->pts != AV_NOPTS_VALUE) {
            times.push_back(packet_->pts);
        }
        av_packet_unref(packet_.get());
    }
    std::sort(times.begin(), times.end());
    std::adjacent_difference(times.begin(), times.end(), times.begin());
    const auto [shortest, longest] = std::minmax_element(times.begin() + (times.empty() ? 0 : 1), times.end());
    return times.size() > 2 && *longest - *shortest > 1;  // of whole ticks one may be a fraction
}

bool StreamCopier::ReadPacket() {
    while (!isPending_) {
        av_packet_unref(packet_.get());
        if (av_read_frame(from_.get(), packet_.get()) < 0) {
            return false;
        }
        const auto index = static_cast<size_t>(packet_->stream_index);
        isPending_ = index < copies_.size() && copies_[index] != nullptr;
        if (packet_->dts == AV_NOPTS_VALUE) {
            packet_->dts = packet_->pts;
        }
        isPending_ = isPending_ && packet_->dts != AV_NOPTS_VALUE;
    }
    return true;
}

int StreamCopier::CopyUntil(int64_t time) {
    int result = 0;
    while (result >= 0 && ReadPacket()) {
        const int64_t packetTime =
            Microseconds(packet_->dts, *from_->streams[packet_->stream_index]) - origin_;
        if (packetTime >= time) {
            break;
        }
        isPending_ = false;
        if (packetTime >= begin_ || begin_ == 0) {
            result = WritePacket();
        }
    }
    return result;
}

int StreamCopier::WritePacket() {
    const auto index = static_cast<size_t>(packet_->stream_index);
    const AVStream& to = *copies_[index];
    av_packet_rescale_ts(packet_.get(), from_->streams[index]->time_base, to.time_base);
    const int64_t shift = av_rescale_q(origin_ + begin_, AV_TIME_BASE_Q, to.time_base);
    // A container takes no packet that is decoded before another one.
    packet_->dts = std::max(packet_->dts - shift, lastTimes_[index] + 1);
    lastTimes_[index] = packet_->dts;
    if (packet_->pts != AV_NOPTS_VALUE) {
        packet_->pts = std::max(packet_->pts - shift, packet_->dts);
    }
    packet_->stream_index = to.index;
    packet_->pos = -1;
    return av_interleaved_write_frame(&to_, packet_.get());
}

int StreamCopier::Finish(std::optional<int64_t> end) {
    const int64_t last = end.value_or(std::numeric_limits<int64_t>::max());
    for (unsigned int i = 0; i < from_->nb_chapters; i++) {
        const AVChapter& from = *from_->chapters[i];
        const auto place = [&](int64_t time) {
            const int64_t at = av_rescale_q(time, from.time_base, AV_TIME_BASE_Q) - origin_;
            return std::clamp(at, begin_, last) - begin_;
        };
        if (place(from.end) > place(from.start)) {
            auto** chapters = static_cast<AVChapter**>(
                av_realloc_array(to_.chapters, to_.nb_chapters + 1, sizeof(AVChapter*)));
            auto* chapter = static_cast<AVChapter*>(av_mallocz(sizeof(AVChapter)));
            *chapter = {from.id, AV_TIME_BASE_Q, place(from.start), place(from.end), nullptr};
            CopyTags(from.metadata, &chapter->metadata);
            to_.chapters = chapters;
            to_.chapters[to_.nb_chapters++] = chapter;
        }
    }
    return CopyUntil(last);
}

}  // namespace desk
