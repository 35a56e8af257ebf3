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

/// How a picture that is stored has to be turned to be seen upright, as FFmpeg's filters say it; empty when
/// it is upright.
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
