// Reads clips for damage.py, as often as it is told, every time on a thread of its own, a frame of each clip
// in turn.
//   read_clip stop|skip TIMES FIRST END CLIP...
// Prints what comes of each clip in three lines, which have to be the same every time: the frames, each with
// its number, mean luma and a digest of its bytes; the ranges that were skipped; the error.

#include <fmt/format.h>

#include <future>
#include <iostream>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include "desk/base/usage_error.h"
#include "desk/clip/clip_reader.h"

namespace {

size_t Digest(const cv::Mat& plane) {
    const size_t size = plane.total() * plane.elemSize();
    return std::hash<std::string_view>()({reinterpret_cast<const char*>(plane.data), size});
}

/// Adds the clip's next frame to the text, or its end. False at the end.
bool ReadFrame(desk::ClipReader& reader, std::string& text) {
    desk::Nv12 picture(reader.Format().size);
    if (reader.Read(picture)) {
        text += fmt::format("{}:{:.2f}:{:x}-{:x} ", reader.Frame(), cv::mean(picture.luma)[0],
                            Digest(picture.luma), Digest(picture.chroma));
        return true;
    }
    text += "\n";
    for (const desk::FrameRange& range : reader.DamagedFrames()) {
        text += fmt::format("{}:{} ", range.first, range.end);
    }
    text += "\n\n";
    return false;
}

std::string Read(const std::vector<std::string>& arguments) {
    const auto onDamage = arguments[0] == "skip" ? desk::OnDamage::Skip : desk::OnDamage::Stop;
    const desk::FrameRange frames = {std::stoll(arguments[2]), std::stoll(arguments[3])};
    const size_t count = arguments.size() - 4;
    std::vector<std::unique_ptr<desk::ClipReader>> readers(count);
    std::vector<std::string> texts(count);
    for (size_t left = count, i = 0; left > 0; i = (i + 1) % count) {
        try {
            if (!readers[i] && texts[i].empty()) {
                readers[i] = std::make_unique<desk::ClipReader>(arguments[4 + i], frames, onDamage);
            } else if (readers[i] && !ReadFrame(*readers[i], texts[i])) {
                readers[i].reset();
                left--;
            }
        } catch (const desk::UsageError& error) {
            texts[i] += fmt::format("\n\n{}\n", error.what());
            readers[i].reset();
            left--;
        }
    }
    return std::accumulate(texts.begin(), texts.end(), std::string());
}

}  // namespace

int main(int count, char** arguments) {
    const std::vector<std::string> words(arguments + 1, arguments + count);
    std::vector<std::future<std::string>> runs(std::stoul(words.at(1)));
    for (auto& run : runs) {
        run = std::async(std::launch::async, Read, std::cref(words));
    }
    const std::string first = runs[0].get();
    std::cout << first;
    for (size_t i = 1; i < runs.size(); i++) {
        if (const std::string other = runs[i].get(); other != first) {
            std::cout << "another time it is\n" << other;
        }
    }
}
