#include <gmock/gmock.h>

#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "desk/tool/commands/commands.h"
#include "desk/tool/errors.h"
#include "tests/tool/tool_fixture.h"

using ::testing::HasSubstr;
using ::testing::IsEmpty;
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
        for (const auto add :
             {desk::AddReplay, desk::AddInspect, desk::AddVerify, desk::AddDiff, desk::AddSynth}) {
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
    void Synthesise() const {
        cv::Mat photo(900, 1200, CV_8UC3);
        cv::RNG(3).fill(photo, cv::RNG::UNIFORM, 0, 256);
        cv::GaussianBlur(photo, photo, {}, 3);
        cv::normalize(photo, photo, 0, 255, cv::NORM_MINMAX);
        cv::imwrite((folder_ / "photo.png").string(), photo);
        ASSERT_EQ(Run({"synth", "photo.png", "-o", "shaky.mkv", "--grids", "grids.txt", "--truth",
                       "truth.mkv", "--size", "320x240", "--length", "6"})
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

TEST_F(Commands, WrongUseIsASentence) {
    Write("dump.txt", CleanLines(1)[0]);
    EXPECT_THROW(Run({"inspect", "missing.txt"}), desk::UsageError);
    EXPECT_THROW(Run({"inspect", "dump.txt", "--margin", "0.2"}), desk::UsageError);
    EXPECT_THROW(Run({"diff", "dump.txt", "missing.txt"}), desk::UsageError);
    EXPECT_THROW(Run({"verify", "missing.mkv", "--grids", "dump.txt"}), desk::UsageError);
}
