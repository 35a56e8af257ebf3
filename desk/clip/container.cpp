#include "desk/clip/container.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cmath>

#include "desk/base/usage_error.h"

extern "C" {
#include <libavutil/display.h>
}

namespace desk {
namespace {

using Path = std::filesystem::path;

/// A text in whose order numbers stand by their value: their digits follow the number of digits.
std::string NaturalKey(const Path& file) {
    const std::string name = file.filename().string();
    std::string key;
    for (size_t at = 0; at < name.size();) {
        const size_t begin = name.find_first_not_of('0', at);
        const size_t end = std::min(name.find_first_not_of("0123456789", at), name.size());
        if (end == at) {
            key += static_cast<char>(std::tolower(static_cast<unsigned char>(name[at++])));
        } else {
            const std::string digits = name.substr(std::min(begin, end), end - std::min(begin, end));
            key += '0' + std::string(1, static_cast<char>(digits.size() + 1)) + digits;
            at = end;
        }
    }
    return key;
}

AVCodecID PictureKind(const Path& file) {
    const AVOutputFormat* pictures = av_guess_format("image2", nullptr, nullptr);
    const std::string extensions = std::string(pictures->extensions) + ",webp";
    return av_match_ext(file.c_str(), extensions.c_str()) != 0 ? av_guess_codec(pictures, nullptr, file.c_str(), nullptr, AVMEDIA_TYPE_VIDEO)
                     : AV_CODEC_ID_NONE;
}

}  // namespace

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
    if (error == AVERROR(ENOENT)) {
        throw UsageError(fmt::format("{} does not exist; expected a clip", clip.string()));
    }
    if (error < 0) {
        throw UsageError(fmt::format("{} is not a clip ({}); expected a video that FFmpeg reads, or a folder "
                                     "of pictures",
                                     clip.string(), AvText(error)));
    }
    return owned;
}

AVStream* PicturesOf(AVFormatContext& container, const Path& clip, const AVCodec** decoder) {
    const AVCodec* found = nullptr;
    const int index = av_find_best_stream(&container, AVMEDIA_TYPE_VIDEO, -1, -1, &found, 0);
    if (index < 0 || found == nullptr) {
        throw UsageError(
            fmt::format("{} has no video stream that can be decoded; expected a clip", clip.string()));
    }
    if (decoder != nullptr) {
        *decoder = found;
    }
    return container.streams[index];
}

bool IsReadOnce(const Path& clip) {
    std::error_code unknown;
    const auto kind = std::filesystem::status(clip, unknown).type();
    return clip == StdStream || kind == std::filesystem::file_type::fifo ||
           kind == std::filesystem::file_type::character || kind == std::filesystem::file_type::socket;
}

int64_t OriginOf(const AVFormatContext& container) {
    const bool isBroadcast = (container.iformat->flags & AVFMT_TS_DISCONT) != 0;
    return isBroadcast && container.start_time != AV_NOPTS_VALUE ? container.start_time : 0;
}

Turn::Turn(const AVStream& stream) {
    const auto* matrix = reinterpret_cast<const int32_t*>(
        av_stream_get_side_data(&stream, AV_PKT_DATA_DISPLAYMATRIX, nullptr));
    if (matrix == nullptr) {
        return;
    }
    // A pixel at (x, y) is seen at (x m0 + y m3, x m1 + y m4).
    isTransposed = std::abs(double{1} * matrix[1]) > std::abs(double{1} * matrix[0]);
    const bool isMirrored = matrix[isTransposed ? 3 : 0] < 0;
    const bool isFlipped = matrix[isTransposed ? 1 : 4] < 0;
    if (isTransposed) {
        filters = fmt::format("transpose={},", (isMirrored ? 1 : 0) + (isFlipped ? 2 : 0));
    } else {
        filters = std::string(isMirrored ? "hflip," : "") + (isFlipped ? "vflip," : "");
    }
    const double angle = av_display_rotation_get(matrix);
    odd = std::isnan(angle) ? 0 : std::abs(std::remainder(angle, 90));
}

std::vector<Path> PicturesIn(const Path& folder) {
    std::vector<std::pair<std::string, Path>> found;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        const Path& file = entry.path();
        if (file.filename().string()[0] != '.' && PictureKind(file) != AV_CODEC_ID_NONE) {
            found.emplace_back(NaturalKey(file), file);
        }
    }
    if (found.empty()) {
        throw UsageError(fmt::format("{} is a folder without pictures; expected such as 1.png, 2.png or "
                                     "IMG_0001.JPG",
                                     folder.string()));
    }
    std::sort(found.begin(), found.end());
    std::vector<Path> pictures;
    for (const auto& [key, file] : found) {
        pictures.push_back(file);
        if (PictureKind(file) != PictureKind(pictures[0])) {
            throw UsageError(fmt::format("{} and {} are of different kinds; expected one kind in a folder",
                                         pictures[0].string(), file.string()));
        }
    }
    return pictures;
}

}  // namespace desk
