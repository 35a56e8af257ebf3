#include <gmock/gmock.h>
#include <sys/resource.h>

#include <csignal>
#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "desk/base/usage_error.h"
#include "desk/cli/commands.h"
#include "desk/clip/clip_reader.h"
#include "desk/run/exit_code.h"
#include "tests/desk/support/tool_fixture.h"

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

namespace {

/// The tool's commands as the command line reaches them.
class Commands : public ToolTest {
protected:
    struct Outcome {
        int code;
        std::string out;
    };

    /// Runs a command; file names are taken in the test's folder. What it throws is passed on.
    Outcome Run(std::vector<std::string> arguments) const {
        CLI::App app;
        desk::ChosenCommand chosen;
        for (const auto add : {desk::AddStabilise, desk::AddReplay, desk::AddInspect, desk::AddVerify,
                               desk::AddDiff, desk::AddSynth}) {
            add(app, chosen);
        }
        std::reverse(arguments.begin(), arguments.end());
        app.parse(arguments);
        const std::filesystem::path before = std::filesystem::current_path();
        std::filesystem::current_path(folder_);
        ::testing::internal::CaptureStdout();
        const auto finish = [&] {
            std::filesystem::current_path(before);
            return ::testing::internal::GetCapturedStdout();
        };
        try {
            const int code = chosen();
            return {code, finish()};
        } catch (...) {
            finish();
            throw;
        }
    }

    /// A short shaky clip with its grids and its truth.
    void Synthesise(const std::string& frames = "6") const {
        cv::Mat photo(900, 1200, CV_8UC3);
        cv::RNG(3).fill(photo, cv::RNG::UNIFORM, 0, 256);
        cv::GaussianBlur(photo, photo, {}, 3);
        cv::normalize(photo, photo, 0, 255, cv::NORM_MINMAX);
        cv::imwrite((folder_ / "photo.png").string(), photo);
        ASSERT_EQ(Run({"synth", "photo.png", "-o", "shaky.mkv", "--grids", "grids.txt", "--truth",
                       "truth.mkv", "--size", "320x240", "--length", frames})
                      .code,
                  desk::Done);
    }

    std::filesystem::path DumpIn(const std::string& dumps, const std::string& kind) const {
        for (const auto& entry : std::filesystem::directory_iterator(folder_ / dumps)) {
            if (entry.path().filename().string().find(kind) != std::string::npos) {
                return entry.path();
            }
        }
        return {};
    }
};

}  // namespace

TEST_F(Commands, VerifyAgreesWithTheReferenceAndTheNodesDumpsAreClean) {
    Synthesise();
    const Outcome verified =
        Run({"verify", "shaky.mkv", "--grids", "grids.txt", "--size", "320x240", "--json", "-", "--dump-dir",
             "dumps", "--heat-map", "heat.png", "--report", "report"});
    EXPECT_EQ(verified.code, desk::Done);
    const auto json = nlohmann::json::parse(verified.out);
    EXPECT_EQ(json["schema"], 1);
    EXPECT_LE(json["planes"]["luma"]["max"], 2);
    EXPECT_GE(json["planes"]["luma"]["psnr_db"], 50.0);
    EXPECT_EQ(cv::imread((folder_ / "heat.png").string()).size(), cv::Size(320, 240));
    EXPECT_THAT(Read(folder_ / "report" / "report.html"), StartsWith("<!DOCTYPE html>"));
    EXPECT_EQ(nlohmann::json::parse(Read(folder_ / "report" / "report.json"))["command"], "verify");

    const Outcome same = Run({"diff", "grids.txt", DumpIn("dumps", "Grid")});
    EXPECT_EQ(same.code, desk::Done);
    EXPECT_THAT(same.out, IsEmpty());
    const Outcome inspected = Run({"inspect", DumpIn("dumps", "Grid"), DumpIn("dumps", "Tex"),
                                   DumpIn("dumps", "Vert"), "--size", "320x240", "--pictures", "pictures"});
    EXPECT_EQ(inspected.code, desk::Done);
    EXPECT_THAT(inspected.out, IsEmpty());
}

TEST_F(Commands, VerifyFailsPastItsLimit) {
    Synthesise();
    EXPECT_EQ(Run({"verify", "shaky.mkv", "--grids", "grids.txt", "--size", "320x240", "--limit", "0"}).code,
              desk::CheckFailed);
}

TEST_F(Commands, DiffNamesTheFirstDifference) {
    std::vector<std::string> lines = CleanLines(2);
    Write("a.txt", lines[0] + lines[1]);
    lines[1].replace(lines[1].rfind(", "), 4, ", 9");
    Write("b.txt", lines[0] + lines[1]);
    const Outcome outcome = Run({"diff", "a.txt", "b.txt"});
    EXPECT_EQ(outcome.code, desk::CheckFailed);
    EXPECT_THAT(outcome.out, StartsWith("first: line 2, y of point 34 in row 26"));
    EXPECT_THAT(outcome.out, HasSubstr("values: 1 of 3780 differ"));
    Write("c.txt", lines[0]);
    EXPECT_THAT(Run({"diff", "b.txt", "c.txt"}).out, StartsWith("first: line 2, request 2 is only in b.txt"));
}

TEST_F(Commands, InspectPrintsFileLineAndColumnAndReportsThemAsJson) {
    std::string line = CleanLines(1)[0];
    line.replace(20, 4, "-nan");
    Write("dump.txt", line);
    const Outcome printed = Run({"inspect", "dump.txt"});
    EXPECT_EQ(printed.code, desk::CheckFailed);
    EXPECT_THAT(printed.out, StartsWith("dump.txt:1:"));
    const auto json = nlohmann::json::parse(Run({"inspect", "dump.txt", "--json", "-"}).out);
    EXPECT_EQ(json["schema"], 1);
    EXPECT_EQ(json["dumps"][0]["findings"].size(), 1U);
}

TEST_F(Commands, RequestsInFlightTogetherGiveTheSameFramesInOrder) {
    Synthesise("40");  // every buffer is used more than once
    std::string alone[5];
    for (const char* inFlight : {"1", "16"}) {
        const std::string name = std::string("steady") + inFlight;
        ASSERT_EQ(Run({"stabilise", "shaky.mkv", "-o", name + ".y4m", "--size", "320x240", "--variant",
                       "lookahead", "--window", "3", "--in-flight", inFlight, "--dump-dir", name})
                      .code,
                  desk::Done);
        const Outcome verified = Run({"verify", "shaky.mkv", "--grids", "grids.txt", "--size", "320x240",
                                      "--in-flight", inFlight, "--json", "-"});
        EXPECT_EQ(verified.code, desk::Done);
        const std::string made[] = {Read(folder_ / (name + ".y4m")), Read(DumpIn(name, "Grid")),
                                    Read(DumpIn(name, "Tex")), Read(DumpIn(name, "Vert")),
                                    nlohmann::json::parse(verified.out)["planes"].dump()};
        for (size_t i = 0; i < std::size(made); ++i) {
            EXPECT_FALSE(made[i].empty()) << i;
            EXPECT_TRUE(inFlight[1] == '\0' || made[i] == alone[i]) << i;
            alone[i] = made[i];
        }
    }
}

TEST_F(Commands, ReplayingTheDumpOfAStabilisedClipGivesTheSameFrames) {
    Synthesise();
    ASSERT_EQ(Run({"stabilise", "shaky.mkv", "-o", "steady.mkv", "--size", "320x240", "--variant",
                   "lookahead", "--window", "3", "--dump-dir", "first"})
                  .code,
              desk::Done);
    ASSERT_EQ(Run({"replay", "shaky.mkv", "--grids", DumpIn("first", "Grid"), "-o", "again.mkv", "--size",
                   "320x240", "--variant", "lookahead", "--dump-dir", "second"})
                  .code,
              desk::Done);
    EXPECT_THAT(Run({"diff", DumpIn("first", "Grid"), DumpIn("second", "Grid")}).out, IsEmpty());
    desk::ClipReader steady(folder_ / "steady.mkv", {});
    desk::ClipReader again(folder_ / "again.mkv", {});
    desk::Nv12 one({320, 240});
    desk::Nv12 other({320, 240});
    int frames = 0;
    for (; steady.Read(one) && again.Read(other); frames++) {
        EXPECT_LE(cv::norm(one.luma, other.luma, cv::NORM_INF), 1);
        EXPECT_LE(cv::norm(one.chroma, other.chroma, cv::NORM_INF), 1);
    }
    EXPECT_EQ(frames, 6);
}

TEST_F(Commands, SkippedFramesLeaveTheOthersTheirNumbersAndGrids) {
    Synthesise("20");
    std::string clip = Read(folder_ / "shaky.mkv");
    clip.replace(clip.size() / 4, 64, 64, '\x55');
    Write("damaged.mkv", clip);
    const auto replay = [this](const std::string& from, const std::string& to) {
        const Outcome outcome = Run({"replay", from, "--grids", "grids.txt", "-o", to, "--size", "320x240",
                                     "--damaged", "skip", "--json", "-"});
        EXPECT_EQ(outcome.code, desk::Done);
        return nlohmann::json::parse(outcome.out);
    };
    EXPECT_TRUE(replay("shaky.mkv", "whole.mkv")["damaged_frames"].empty());
    const auto json = replay("damaged.mkv", "rest.mkv");
    const auto lost = json["damaged_frames"].at(0);
    const int lostFrames = lost["last"].get<int>() - lost["first"].get<int>() + 1;
    EXPECT_GT(lostFrames, 0);
    EXPECT_EQ(json["frames"].size(), 20U - static_cast<size_t>(lostFrames));
    desk::ClipReader rest(folder_ / "rest.mkv", {});
    desk::Nv12 one({320, 240});
    desk::Nv12 other({320, 240});
    for (const auto& frame : json["frames"]) {
        const auto number = frame["frame"].get<int64_t>();
        EXPECT_TRUE(number < lost["first"] || number > lost["last"]) << number;
        EXPECT_EQ(frame["request"], number + 1);
        desk::ClipReader whole(folder_ / "whole.mkv", {number, number + 1});
        ASSERT_TRUE(rest.Read(one) && whole.Read(other));
        EXPECT_EQ(cv::norm(one.luma, other.luma, cv::NORM_INF), 0) << number;
    }
    EXPECT_THROW(
        Run({"replay", "damaged.mkv", "--grids", "grids.txt", "-o", "none.mkv", "--size", "320x240"}),
        desk::UsageError);
    EXPECT_FALSE(std::filesystem::exists(folder_ / "none.mkv"));
}

/// A command line that cannot be carried out, and a part of the sentence that says so.
struct Refusal {
    std::vector<std::string> arguments;
    const char* text;
    bool isUsage = true;
};

class BadInput : public Commands {
protected:
    /// The clips and dumps of which the table below speaks.
    void WriteInputs() const {
        Synthesise();
        Write("text.mp4", "hello");
        Write("empty.y4m", "YUV4MPEG2 W384 H288 F30:1 Ip A1:1 C420jpeg\n");
        Write("odd.y4m", "YUV4MPEG2 W385 H289 F30:1 Ip A1:1 C444\nFRAME\n" + std::string(3 * 385 * 289, 'x'));
        Write("sound.wav",
              std::string(
                  "RIFF\x2c\0\0\0WAVEfmt \x10\0\0\0\1\0\1\0\x40\x1f\0\0\x40\x1f\0\0\1\0\x8\0data\x8\0\0\0",
                  44) +
                  "abcdefgh");
        std::string clip = Read(folder_ / "shaky.mkv");
        Write("cut.mkv", clip.substr(0, clip.size() / 2));
        clip.replace(clip.size() / 2, 64, 64, '\x55');
        Write("damaged.mkv", clip);
        const std::string grids = Read(folder_ / "grids.txt");
        Write("cut.txt", grids.substr(0, 3 * grids.size() / 4));
        Write("short.txt", grids.substr(0, grids.find('\n') + 1));
        Write("twice.txt", grids + grids);
        Write("other.txt", GridLine(1, ShiftGrid(640, 480, 0, 0)));
        Write("far.txt", std::string(grids).replace(grids.find(", -") + 2, 9, "-230000000.0"));
    }

    /// What the command throws, in words; fails when it throws nothing or leaves something behind.
    std::string Refused(const Refusal& refusal) const {
        std::vector<std::string> arguments = refusal.arguments;
        if (arguments[0] == "stabilise" || arguments[0] == "replay") {
            for (const char* more :
                 {"-o", "out.mkv", "--json", "out.json", "--dump-dir", "dumps", "--report", "report"}) {
                arguments.emplace_back(more);
            }
        }
        std::string text = "nothing was thrown";
        try {
            Run(arguments);
        } catch (const std::exception& error) {
            EXPECT_EQ(dynamic_cast<const desk::UsageError*>(&error) != nullptr, refusal.isUsage);
            text = error.what();
        }
        for (const char* left : {"out.mkv", "out.json", "report/report.html", "report/report.json"}) {
            EXPECT_FALSE(std::filesystem::exists(folder_ / left)) << left;
        }
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folder_)) {
            EXPECT_THAT(entry.path().string(), Not(HasSubstr("unfinished")));
        }
        EXPECT_TRUE(!std::filesystem::exists(folder_ / "dumps") ||
                    std::filesystem::is_empty(folder_ / "dumps"));
        return text;
    }
};

TEST_F(BadInput, IsNamedInASentenceAndLeavesNothingThatLooksWhole) {
    WriteInputs();
    const std::vector<Refusal> table = {
        {{"stabilise", "none.mp4"}, "none.mp4 does not exist; expected a clip"},
        {{"stabilise", "text.mp4"}, "text.mp4 is not a clip"},
        {{"stabilise", "sound.wav"}, "sound.wav has no video stream"},
        {{"stabilise", "empty.y4m"}, "empty.y4m has 0 frames; expected more than 0"},
        {{"stabilise", "cut.mkv"}, "cut.mkv is damaged at frame "},
        {{"stabilise", "damaged.mkv"}, "damaged.mkv is damaged at frame "},
        {{"stabilise", "shaky.mkv", "--size", "20000x20000"}, "too large for"},
        {{"stabilise", "shaky.mkv", "--frames", "6:"}, "shaky.mkv has 6 frames; expected more than 6"},
        {{"replay", "odd.y4m", "--grids", "grids.txt"}, "the clip is 385 pixels wide"},
        {{"replay", "shaky.mkv", "--size", "320x240", "--grids", "none.txt"}, "none.txt: cannot be opened"},
        {{"replay", "shaky.mkv", "--size", "320x240", "--grids", "cut.txt"}, "cut.txt:5:"},
        {{"replay", "shaky.mkv", "--size", "320x240", "--grids", "short.txt"},
         "1 lines and none for frame 1"},
        {{"replay", "shaky.mkv", "--size", "320x240", "--grids", "twice.txt"}, "every request id once"},
        {{"replay", "shaky.mkv", "--size", "320x240", "--grids", "other.txt"},
         "expected a grid for an input of 384 x"},
        {{"replay", "shaky.mkv", "--size", "320x240", "--grids", "far.txt"}, "got -230000000.0"},
        {{"replay", "shaky.mkv", "--size", "320x240", "--grids", "grids.txt", "--first-request", "4"},
         "no line of request 7, which frame 3"},
        {{"stabilise", "shaky.mkv", "--damaged", "skip", "--truth", "truth.mkv", "--size", "320x240"},
         "expected no --damaged skip with it"},
        {{"inspect", "none.txt"}, "none.txt: cannot be opened"},
        {{"inspect", "grids.txt", "--margin", "0.2"}, "expected --size with --margin"},
        {{"diff", "grids.txt", "none.txt"}, "none.txt: cannot be opened"},
    };
    for (const Refusal& refusal : table) {
        EXPECT_THAT(Refused(refusal), HasSubstr(refusal.text));
    }
}

TEST_F(BadInput, WhatCannotBeWrittenIsNoFaultOfTheUser) {
    WriteInputs();
    EXPECT_THAT(
        Refused({{"synth", "photo.png", "-o", "nowhere/a.mkv", "--grids", "b.txt", "--truth", "c.mkv",
                  "--size", "320x240"},
                 "",
                 false}),
        HasSubstr("nowhere/a.mkv cannot be made: No such file or directory; expected a folder that exists"));
    // A file that may not grow further fails as on a full disk.
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    const auto handler = std::signal(SIGXFSZ, SIG_IGN);
    const rlimit small = {60000, before.rlim_max};
    const auto refused = [&](const std::vector<std::string>& arguments) {
        setrlimit(RLIMIT_FSIZE, &small);
        const std::string text = Refused({arguments, "", false});
        setrlimit(RLIMIT_FSIZE, &before);
        return text;
    };
    EXPECT_THAT(refused({"synth", "photo.png", "-o", "out.mkv", "--grids", "b.txt", "--truth", "c.mkv",
                         "--size", "320x240"}),
                HasSubstr("out.mkv cannot be written: a frame is not stored: File too large"));
    EXPECT_THAT(refused({"stabilise", "shaky.mkv", "--size", "64x48"}),
                HasSubstr("the node could not write all its dumps to dumps"));
    static_cast<void>(std::signal(SIGXFSZ, handler));
}
