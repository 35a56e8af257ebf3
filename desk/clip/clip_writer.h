#pragma once

#include <filesystem>
#include <memory>

#include "desk/clip/clip_reader.h"
#include "desk/clip/nv12.h"

namespace desk {

/// Writes a clip of the kind that its name asks for: .mp4 (H.264), .mkv (FFV1, lossless), .y4m, and a folder
/// of numbered PNGs for a name without extension. It appears under its name when it is complete; until then
/// it grows under a temporary name beside it, which is removed when the writer goes before.
class ClipWriter {
public:
    /// Throws UsageError for a name that says no kind, and when the clip exists and may not be overwritten;
    /// std::runtime_error when it cannot be made there.
    ClipWriter(std::filesystem::path clip, const ClipFormat& format, bool overwrite);
    ~ClipWriter();
    ClipWriter(const ClipWriter&) = delete;
    ClipWriter& operator=(const ClipWriter&) = delete;

    /// The next frame, of the format's size. Throws std::runtime_error, for example when the disk is full.
    void Add(const Nv12& picture);

    /// Writes the clip's end. Throws as Add does: what is encoded last may fill the disk.
    void Complete();
    /// Puts the complete clip under its name. Throws as Output does.
    void Publish();
    /// Both, for a clip that is the only output.
    void Finish();

private:
    struct Encoder;
    std::unique_ptr<Encoder> encoder_;
};

}  // namespace desk
