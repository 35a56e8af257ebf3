#include <fmt/format.h>
#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <future>
#include <opencv2/core.hpp>
#include <sstream>
#include <vector>

#include "desk/base/usage_error.h"
#include "desk/clip/av_handles.h"
#include "desk/clip/clip_reader.h"

using ::testing::HasSubstr;

namespace {

constexpr int Frames = 20;
const cv::Size Size(160, 96);

/// How FFmpeg is asked for a clip; the name's extension says the container.
struct Kind {
    const char* name;
    const char* codec;
    const char* options;
    bool hasChecksums = false;
    bool opensWhenCut = true;  ///< mp4 and mov have their index at the end
    int pause = 3;             ///< in the middle, frames; some containers count it
};

constexpr const char* H264 = "preset=veryfast:crf=18:g=5:bf=2:b_strategy=0:sc_threshold=0:b-pyramid=none";
constexpr const char* Ffv1 = "level=3:slices=4:slicecrc=1:g=5";
constexpr const char* Mpeg4 = "g=5:bf=2:b=2000000:b_strategy=0";

const std::vector<Kind> Kinds = {
    {"h264.mp4", "libx264", H264, false, false},
    {"h264.mov", "libx264", H264, false, false},
    {"h264.mkv", "libx264", H264},
    {"h264.avi", "libx264", H264},
    {"h264.ts", "libx264", H264},
    {"h264.flv", "libx264", H264},
    {"h264.nut", "libx264", H264},
    {"ffv1.mkv", "ffv1", Ffv1, true},
    {"ffv1.avi", "ffv1", Ffv1, true},
    {"ffv1.nut", "ffv1", Ffv1, true},
    {"mpeg4.mp4", "mpeg4", Mpeg4, false, false},
    {"mpeg4.mkv", "mpeg4", Mpeg4},
    {"mpeg4.avi", "mpeg4", "g=5:b=2000000"},
    {"mpeg4.ts", "mpeg4", Mpeg4},
    {"front.mp4", "mpeg4", "b=2000000:movflags=+faststart"},
    {"mjpeg.mpjpeg", "mjpeg", "b=2000000"},
    {"mjpeg.avi", "mjpeg", "b=2000000"},
    {"raw.y4m", "wrapped_avframe", ""},
};

/// Luma that tells a frame's number by its mean, with noise that gives the decoder much to read.
void Paint(int number, AVFrame& frame) {
    cv::Mat luma(Size, CV_8UC1, frame.data[0], static_cast<size_t>(frame.linesize[0]));
    cv::RNG(static_cast<uint64_t>(number) + 1).fill(luma, cv::RNG::UNIFORM, 0, 40);
    luma += 20 + 8 * number;
    for (const int plane : {1, 2}) {
        cv::Mat(Size / 2, CV_8UC1, frame.data[plane], static_cast<size_t>(frame.linesize[plane])).setTo(128);
    }
}

int NumberOf(const desk::Nv12& picture) {
    return cvRound((cv::mean(picture.luma)[0] - 39.5) / 8);
}

void Require(int result) {
    ASSERT_GE(result, 0) << desk::AvText(result);
}

void MakeClip(const std::filesystem::path& file, const Kind& kind) {
    av_log_set_level(AV_LOG_FATAL);
    const AVCodec* found = avcodec_find_encoder_by_name(kind.codec);
    ASSERT_NE(found, nullptr) << kind.codec;
    const desk::AvOwned<AVCodecContext> codec(avcodec_alloc_context3(found));
    codec->width = Size.width;
    codec->height = Size.height;
    codec->pix_fmt = found->pix_fmts != nullptr ? found->pix_fmts[0] : AV_PIX_FMT_YUV420P;
    codec->time_base = {1, 25};
    codec->framerate = {25, 1};
    AVFormatContext* container = nullptr;
    const AVOutputFormat* format =
        av_guess_format(file.extension().string().substr(1).c_str(), file.c_str(), nullptr);
    Require(avformat_alloc_output_context2(&container, format, nullptr, file.c_str()));
    if ((container->oformat->flags & AVFMT_GLOBALHEADER) != 0) {
        codec->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    }
    AVDictionary* options = nullptr;
    av_dict_parse_string(&options, kind.options, "=", ":", 0);
    Require(avcodec_open2(codec.get(), found, &options));
    AVStream* stream = avformat_new_stream(container, nullptr);
    Require(avcodec_parameters_from_context(stream->codecpar, codec.get()));
    stream->time_base = codec->time_base;
    stream->avg_frame_rate = codec->framerate;
    Require(avio_open(&container->pb, file.c_str(), AVIO_FLAG_WRITE));
    Require(avformat_write_header(container, &options));
    EXPECT_EQ(av_dict_count(options), 0);
    av_dict_free(&options);
    const desk::AvOwned<AVPacket> packet(av_packet_alloc());
    for (int n = 0; n <= Frames; n++) {
        const desk::AvOwned<AVFrame> frame(av_frame_alloc());
        frame->format = codec->pix_fmt;
        frame->width = Size.width;
        frame->height = Size.height;
        frame->pts = n < Frames / 2 ? n : n + kind.pause;
        Require(av_frame_get_buffer(frame.get(), 0));
        Paint(n, *frame);
        Require(avcodec_send_frame(codec.get(), n < Frames ? frame.get() : nullptr));
        while (avcodec_receive_packet(codec.get(), packet.get()) >= 0) {
            packet->duration = 1;
            av_packet_rescale_ts(packet.get(), codec->time_base, stream->time_base);
            Require(av_interleaved_write_frame(container, packet.get()));
        }
    }
    Require(av_write_trailer(container));
    Require(avio_closep(&container->pb));
    avformat_free_context(container);
}

/// What a reader makes of a clip: the frames that it gave, all their bytes as one number, what it skipped and
/// what it said.
struct Outcome {
    std::vector<int> frames;
    size_t digest = 0;
    std::string skipped;
    std::string error;

    bool operator==(const Outcome& other) const {
        return frames == other.frames && digest == other.digest && skipped == other.skipped &&
               error == other.error;
    }
};

Outcome Read(const std::filesystem::path& file, desk::OnDamage onDamage = desk::OnDamage::Stop) {
    Outcome outcome;
    try {
        desk::ClipReader reader(file, {}, onDamage);
        desk::Nv12 picture(Size);
        while (reader.Read(picture)) {
            outcome.frames.push_back(static_cast<int>(reader.Frame()));
            for (const cv::Mat& plane : {picture.luma, picture.chroma}) {
                const std::string_view bytes(reinterpret_cast<const char*>(plane.data),
                                             plane.total() * plane.elemSize());
                outcome.digest = 31 * outcome.digest + std::hash<std::string_view>()(bytes);
            }
            // Of a damaged clip frames may look like anything until the damage is noticed, but not others.
            EXPECT_TRUE(onDamage == desk::OnDamage::Stop || NumberOf(picture) == reader.Frame()) << file;
        }
        for (const desk::FrameRange& range : reader.DamagedFrames()) {
            outcome.skipped += fmt::format("{}:{} ", range.first, range.end);
        }
    } catch (const desk::UsageError& error) {
        outcome.error = error.what();
    }
    return outcome;
}

/// Ten runs, some at the same time, that must all come to the same.
Outcome ReadOften(const std::filesystem::path& file, desk::OnDamage onDamage = desk::OnDamage::Stop) {
    std::vector<std::future<Outcome>> runs;
    for (int i = 0; i < 9; i++) {
        runs.push_back(std::async(std::launch::async, [=] { return Read(file, onDamage); }));
    }
    Outcome first = Read(file, onDamage);
    for (auto& run : runs) {
        const Outcome other = run.get();
        EXPECT_TRUE(other == first) << file << ": " << first.error << " | " << other.error;
    }
    return first;
}

class Clips : public ::testing::Test {
protected:
    Clips() : folder_(std::filesystem::temp_directory_path() / fmt::format("dewarp_clips_{}", getpid())) {
        std::filesystem::create_directory(folder_);
    }
    ~Clips() override {
        std::filesystem::remove_all(folder_);
    }

    std::filesystem::path Make(const Kind& kind) const {
        MakeClip(folder_ / kind.name, kind);
        return folder_ / kind.name;
    }
    static std::string Bytes(const std::filesystem::path& file) {
        std::ostringstream bytes;
        bytes << std::ifstream(file, std::ios::binary).rdbuf();
        return bytes.str();
    }
    /// The clip, ending early or with one byte that is another.
    std::filesystem::path Cut(const std::filesystem::path& clip, double share) const {
        const std::string bytes = Bytes(clip);
        return Write(clip, bytes.substr(0, static_cast<size_t>(share * static_cast<double>(bytes.size()))));
    }
    std::filesystem::path Flip(const std::filesystem::path& clip, double share) const {
        std::string bytes = Bytes(clip);
        bytes[static_cast<size_t>(share * static_cast<double>(bytes.size()))] ^= 0x55;
        return Write(clip, bytes);
    }
    /// The clip with a byte wrong for which the reader says this.
    std::filesystem::path Damage(const std::filesystem::path& clip,
                                 const std::string& words = "at frame") const {
        double share = .4;
        while (share < 1 && Read(Flip(clip, share)).error.find(words) == std::string::npos) {
            share += .003;
        }
        EXPECT_LT(share, 1) << clip;
        return Flip(clip, share);
    }
    std::filesystem::path Write(const std::filesystem::path& clip, const std::string& bytes) const {
        const std::filesystem::path file = folder_ / ("harmed." + clip.filename().string());
        std::ofstream(file, std::ios::binary) << bytes;
        return file;
    }

    std::filesystem::path folder_;
};

}  // namespace

TEST_F(Clips, IntactOnesPassWithAllTheirFramesInEveryContainer) {
    for (const Kind& kind : Kinds) {
        const std::filesystem::path clip = Make(kind);
        const Outcome outcome = ReadOften(clip, desk::OnDamage::Skip);
        EXPECT_EQ(outcome.error + outcome.skipped, "") << kind.name;
        EXPECT_EQ(outcome.frames.size(), size_t{Frames}) << kind.name;
        EXPECT_TRUE(Read(clip) == outcome) << kind.name;
    }
}

TEST_F(Clips, ThatEndTooEarlyAreToldInEveryContainer) {
    for (const Kind& kind : Kinds) {
        const std::filesystem::path clip = Make(kind);
        const bool isAvi = clip.extension() == ".avi";  // its last packet says that it is not whole
        for (const double share : {0.61, 0.97}) {       // neither lies between two frames
            const Outcome outcome = ReadOften(Cut(clip, share));
            const std::string told = fmt::format("is damaged at frame {}: {}", outcome.frames.size(),
                                                 isAvi ? "it is cut off" : "");
            EXPECT_THAT(outcome.error, HasSubstr(kind.opensWhenCut ? told : "is not a clip"))
                << kind.name << " " << share;
        }
    }
}

TEST_F(Clips, ThatLackAFrameOfTheirIndexAreTold) {
    const std::filesystem::path clip = Make({"lost.avi", "mpeg4", "b=2000000", false, true, 0});
    EXPECT_EQ(Read(clip).error, "");
    std::string bytes = Bytes(clip);
    size_t packet = 0;
    for (int n = 0; n < Frames / 2; n++) {
        packet = bytes.find("00dc", packet + 1);
    }
    const Outcome outcome = ReadOften(Write(clip, bytes.replace(packet, 4, "JUNK")));
    EXPECT_THAT(outcome.error, HasSubstr("it ends after 19 of the 20 frames that its header promises"));
}

TEST_F(Clips, WithOneByteWrongComeToTheSameInEveryRun) {
    for (const Kind& kind : Kinds) {
        const std::filesystem::path clip = Make(kind);
        int told = 0;
        for (const double share : {.15, .25, .35, .45, .55, .65, .75, .85}) {
            const std::filesystem::path harmed = Flip(clip, share);
            const Outcome stopped = ReadOften(harmed);
            told += stopped.error.empty() ? 0 : 1;
            if (kind.hasChecksums) {
                ReadOften(harmed, desk::OnDamage::Skip);  // each frame that it gives is right
            }
        }
        EXPECT_GE(told, kind.hasChecksums ? 8 : 0) << kind.name;
    }
}

TEST_F(Clips, ReadInTurnsAreToldApart) {
    const std::filesystem::path intact = Make(Kinds[0]);
    const std::filesystem::path harmed = Damage(intact, "its data does not fit together");
    for (const bool isIntactFirst : {true, false}) {
        desk::ClipReader one(isIntactFirst ? intact : harmed, {});
        desk::ClipReader other(isIntactFirst ? harmed : intact, {});
        desk::ClipReader& good = isIntactFirst ? one : other;
        desk::ClipReader& bad = isIntactFirst ? other : one;
        desk::Nv12 picture(Size);
        int frames = 0;
        bool isTold = false;
        while (good.Read(picture)) {
            frames++;
            try {
                EXPECT_TRUE(isTold || bad.Read(picture));
            } catch (const desk::UsageError& error) {
                isTold = true;
                EXPECT_THAT(error.what(), HasSubstr(harmed.string()));
            }
        }
        EXPECT_EQ(frames, Frames);
        EXPECT_TRUE(isTold);
    }
}

TEST_F(Clips, KeepTheirFramesNumbersWhenDamageIsSkipped) {
    for (const Kind& kind : {Kinds[0], Kinds[2], Kinds[7], Kinds[10]}) {
        const std::filesystem::path harmed = Damage(Make(kind));
        const Outcome stopped = Read(harmed);
        const Outcome skipped = ReadOften(harmed, desk::OnDamage::Skip);
        const auto first = static_cast<int>(stopped.frames.size());
        EXPECT_THAT(stopped.error, HasSubstr(fmt::format("is damaged at frame {}: ", first))) << kind.name;
        EXPECT_THAT(skipped.skipped, ::testing::StartsWith(fmt::format("{}:", first))) << kind.name;
        // The group of the damaged frame is lost at most, and the one before it where it is shown late.
        EXPECT_GE(skipped.frames.size(), size_t{Frames - 8}) << kind.name;
        EXPECT_LT(skipped.frames.size(), size_t{Frames}) << kind.name;
        EXPECT_EQ(skipped.frames.back(), Frames - 1) << kind.name;
    }
    const std::filesystem::path cut = Cut(Make(Kinds[2]), 0.6);
    const Outcome rest = ReadOften(cut, desk::OnDamage::Skip);
    EXPECT_EQ(rest.skipped, fmt::format("{}:{} ", Read(cut).frames.size(), int{Frames}));
}

TEST_F(Clips, HaveNoFrameWhereAllAreDamaged) {
    const std::filesystem::path harmed = Damage(Make(Kinds[7]));
    const std::vector<int> frames = Read(harmed, desk::OnDamage::Skip).frames;
    const size_t damaged = Read(harmed).frames.size();
    const auto first = static_cast<int64_t>(damaged);
    desk::Nv12 picture(Size);
    desk::ClipReader within(harmed, {first, frames[damaged]}, desk::OnDamage::Skip);
    EXPECT_THROW(within.Read(picture), desk::UsageError);
    desk::ClipReader after(harmed, {first, frames[damaged] + 1}, desk::OnDamage::Skip);
    ASSERT_TRUE(after.Read(picture));
    EXPECT_EQ(after.Frame(), frames[damaged]);
    EXPECT_FALSE(after.Read(picture));
}
