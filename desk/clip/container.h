#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "desk/clip/ffmpeg.h"

namespace desk {

/// The name that stands for stdin and stdout.
constexpr const char* StdStream = "-";

/// Opens a clip, "-" for the one on stdin. Throws UsageError, naming the file, when it is none;
/// std::runtime_error when it may not be read.
AvOwned<AVFormatContext> OpenContainer(const std::filesystem::path& clip);

/// The stream that a clip's pictures are taken from, and its decoder. Throws UsageError, naming the file, when
/// it has none that can be decoded.
AVStream* PicturesOf(AVFormatContext& container, const std::filesystem::path& clip,
                     const AVCodec** decoder = nullptr);

/// Whether what is read of it is gone: a pipe.
bool IsReadOnce(const std::filesystem::path& clip);

/// Microseconds on the container's clock at which the clip begins: clocks of broadcasts run all day, others
/// begin with it.
int64_t OriginOf(const AVFormatContext& container);

/// How a picture that is stored has to be turned to be seen upright, as FFmpeg's filters say it; empty when it
/// is upright.
struct Turn {
    explicit Turn(const AVStream& stream);

    std::string filters;
    bool isTransposed = false;
    double odd = 0;  ///< degrees that the filters leave, of a turn by no quarters
};

/// The pictures of a folder in natural order, 9.png before 10.png: all files whose extension, in any case, is
/// one of pictures, but for hidden ones. Throws UsageError when there is none, or they are of several kinds.
std::vector<std::filesystem::path> PicturesIn(const std::filesystem::path& folder);

}  // namespace desk
