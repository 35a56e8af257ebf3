#include <fmt/format.h>
#include <gmock/gmock.h>

#include <future>
#include <vector>

#include "desk/base/usage_error.h"
#include "desk/clip/av_handles.h"
#include "desk/clip/clip_reader.h"
#include "tests/desk/support/folder_test.h"

using ::testing::HasSubstr;

namespace {

constexpr int Frames = 20;
const cv::Size Size(160, 96);

/// How FFmpeg is asked for a clip; the name's extension says the container.
struct Kind {
    std::string name;
    std::string codec;
    std::string options;
    bool opensWhenCut = true;
    int pause = 3;  ///< in the middle, frames; some containers count it

    bool HasChecksums() const {
        return codec == "ffv1";
    }
};

const std::vector<Kind> Kinds = [] {
    std::vector<Kind> kinds;
    std::ifstream in(TEST_CONTAINERS);
    std::string opens;
    for (Kind kind; in >> kind.name >> kind.codec >> opens >> kind.options;) {
        kind.opensWhenCut = opens == "yes";
        kinds.push_back(kind);
    }
    return kinds;
}();

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
    const AVCodec* found = avcodec_find_encoder_by_name(kind.codec.c_str());
    ASSERT_NE(found, nullptr) << kind.codec;
    const desk::AvOwned<AVCodecContext> codec(avcodec_alloc_context3(found));
    codec->width = Size.width;
    codec->height = Size.height;
    codec->pix_fmt = found->pix_fmts != nullptr ? found->pix_fmts[0] : AV_PIX_FMT_YUV420P;
    codec->time_base = {1, 25};
    codec->framerate = {25, 1};
    AVFormatContext* made = nullptr;
    const AVOutputFormat* format =
        av_guess_format(file.extension().string().substr(1).c_str(), file.c_str(), nullptr);
    Require(avformat_alloc_output_context2(&made, format, nullptr, file.c_str()));
    const desk::AvOwned<AVFormatContext> owned(made);
    AVFormatContext* const container = made;
    if ((container->oformat->flags & AVFMT_GLOBALHEADER) != 0) {
        codec->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    }
    AVDictionary* options = nullptr;
    av_dict_parse_string(&options, kind.options.c_str(), "=", ":", 0);
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
}

/// What a reader makes of a clip.
struct Outcome {
    std::vector<int> frames;
    std::string skipped;
    std::string error;
    size_t digest = 0;  ///< of all bytes and words
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
    outcome.digest += std::hash<std::string>()(outcome.skipped + outcome.error);
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
        EXPECT_EQ(run.get().digest, first.digest) << file << ": " << first.error;
    }
    return first;
}

class DamagedClips : public FolderTest {
protected:
    std::filesystem::path Make(const Kind& kind) const {
        MakeClip(folder_ / kind.name, kind);
        return folder_ / kind.name;
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
    std::filesystem::path Harm(const std::filesystem::path& clip,
                               const std::string& words = "at frame") const {
        double share = .4;
        while (share < 1 && Read(Flip(clip, share)).error.find(words) == std::string::npos) {
            share += .003;
        }
        EXPECT_LT(share, 1) << clip;
        return Flip(clip, share);
    }
    std::filesystem::path Write(const std::filesystem::path& clip, const std::string& bytes) const {
        return FolderTest::Write("harmed." + clip.filename().string(), bytes);
    }
};

}  // namespace

TEST_F(DamagedClips, IsNoneInIntactClipsOfAnyContainer) {
    for (const Kind& kind : Kinds) {
        const std::filesystem::path clip = Make(kind);
        const Outcome outcome = ReadOften(clip, desk::OnDamage::Skip);
        EXPECT_EQ(outcome.error + outcome.skipped, "") << kind.name;
        EXPECT_EQ(outcome.frames.size(), size_t{Frames}) << kind.name;
        EXPECT_EQ(Read(clip).digest, outcome.digest) << kind.name;
    }
}

TEST_F(DamagedClips, IsToldWhereAClipEndsTooEarly) {
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

TEST_F(DamagedClips, IsToldWhereAFrameOfTheIndexIsGone) {
    const std::filesystem::path clip = Make({"lost.avi", "mpeg4", "b=2000000", true, 0});
    EXPECT_EQ(Read(clip).error, "");
    std::string bytes = Bytes(clip);
    size_t packet = 0;
    for (int n = 0; n < Frames / 2; n++) {
        packet = bytes.find("00dc", packet + 1);
    }
    const Outcome outcome = ReadOften(Write(clip, bytes.replace(packet, 4, "JUNK")));
    EXPECT_THAT(outcome.error, HasSubstr("it ends after 19 of the 20 frames that its header promises"));
}

TEST_F(DamagedClips, OfOneByteComesToTheSameInEveryRun) {
    for (const Kind& kind : Kinds) {
        const std::filesystem::path clip = Make(kind);
        int told = 0;
        for (const double share : {.15, .25, .35, .45, .55, .65, .75, .85}) {
            const std::filesystem::path harmed = Flip(clip, share);
            const Outcome stopped = ReadOften(harmed);
            told += stopped.error.empty() ? 0 : 1;
            if (kind.HasChecksums()) {
                ReadOften(harmed, desk::OnDamage::Skip);  // each frame that it gives is right
            }
        }
        EXPECT_TRUE(!kind.HasChecksums() || told == 8) << kind.name;
    }
}

TEST_F(DamagedClips, OfOneClipIsNotBlamedOnOthers) {
    const std::filesystem::path intact = Make(Kinds[0]);
    const std::filesystem::path harmed = Harm(intact, "its data does not fit together");
    desk::ClipReader before(intact, {});
    desk::ClipReader bad(harmed, {});
    desk::ClipReader after(intact, {});
    desk::Nv12 picture(Size);
    int frames = 0;
    std::string told;
    for (; before.Read(picture) && after.Read(picture); frames++) {
        try {
            EXPECT_TRUE(!told.empty() || bad.Read(picture));
        } catch (const desk::UsageError& error) {
            told = error.what();
        }
    }
    EXPECT_EQ(frames, Frames);
    EXPECT_THAT(told, HasSubstr(harmed.string()));
}

TEST_F(DamagedClips, LeavesOtherFramesTheirNumbers) {
    for (const Kind& kind : {Kinds[0], Kinds[2], Kinds[7], Kinds[10]}) {
        const std::filesystem::path harmed = Harm(Make(kind));
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

TEST_F(DamagedClips, OfAllFramesAskedForIsRefused) {
    const std::filesystem::path harmed = Harm(Make(Kinds[7]));
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
