#include "desk/clip/container.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "desk/base/usage_error.h"

extern "C" {
#include <libavutil/display.h>
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
        throw UsageError(
            fmt::format("{} is not a clip ({}); expected a video that FFmpeg reads, or a folder "
                        "of pictures",
                        clip.string(), AvText(error)));
    }
    return owned;
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

}  // namespace desk
