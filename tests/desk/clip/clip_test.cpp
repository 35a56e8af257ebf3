#include <fmt/format.h>
#include <gmock/gmock.h>

#include <opencv2/imgcodecs.hpp>

#include "desk/base/usage_error.h"
#include "desk/clip/clip_reader.h"
#include "desk/clip/clip_writer.h"
#include "tests/desk/support/folder_test.h"

using desk::ClipFormat;

namespace {

const cv::Size Size(64, 48);

int LumaOf(int64_t number) {
    return 60 + 5 * static_cast<int>(number);
}

/// Raw frames 0 to 9, each of its own luma, with one colour.
std::string Raw(const std::string& header) {
    std::string clip = header + "\n";
    for (int number = 0; number < 10; number++) {
        clip += "FRAME\n" + std::string(64 * 48, static_cast<char>(LumaOf(number))) +
                std::string(32 * 24, static_cast<char>(118)) + std::string(32 * 24, static_cast<char>(142));
    }
    return clip;
}

/// The frame is this one, and of that colour.
void ExpectFrame(const desk::Nv12& picture, int64_t number, double tolerance) {
    const cv::Scalar colour = cv::mean(picture.chroma);
    EXPECT_NEAR(cv::mean(picture.luma)[0], LumaOf(number), tolerance) << number;
    EXPECT_NEAR(colour[0], 118, tolerance) << number;
    EXPECT_NEAR(colour[1], 142, tolerance) << number;
}

}  // namespace

using Clips = FolderTest;

TEST_F(Clips, GiveTheFramesOfARange) {
    const std::filesystem::path clip = Write("raw.y4m", Raw("YUV4MPEG2 W64 H48 F30000:1001 C420jpeg"));
    constexpr int64_t Open = desk::FrameRange().end;
    const int64_t table[][3] = {{0, Open, 10}, {3, 8, 5}, {5, Open, 5}, {0, 4, 4}, {9, 20, 1}, {4, 5, 1}};
    desk::Nv12 picture(Size);
    for (const auto& [first, end, frames] : table) {
        desk::ClipReader reader(clip, {first, end});
        for (int64_t number = first; number < first + frames; number++) {
            ASSERT_TRUE(reader.Read(picture));
            EXPECT_EQ(reader.Frame(), number);
            ExpectFrame(picture, number, 0);
        }
        EXPECT_FALSE(reader.Read(picture));
        EXPECT_EQ(reader.Format().rateNumerator * 1001, reader.Format().rateDenominator * 30000);
    }
    desk::ClipReader beyond(clip, {20, Open});
    try {
        beyond.Read(picture);
        ADD_FAILURE();
    } catch (const desk::UsageError& error) {
        EXPECT_EQ(std::string(error.what()), clip.string() + " has 10 frames; expected more than 20");
    }
}

TEST_F(Clips, ShowTheirMiddleInAnotherShape) {
    std::string bytes = "YUV4MPEG2 W64 H48 F25:1 C420jpeg\nFRAME\n";
    for (int pixel = 0; pixel < 64 * 48; pixel++) {
        bytes += static_cast<char>(pixel % 64 + pixel / 64);
    }
    for (int sample = 0; sample < 2 * 32 * 24; sample++) {
        bytes += static_cast<char>(sample % 32 + sample / 32);
    }
    desk::ClipReader reader(Write("shape.y4m", bytes), {});
    desk::Nv12 narrow({32, 48});
    ASSERT_TRUE(reader.Read(narrow));
    EXPECT_EQ(narrow.luma.at<uint8_t>(0, 0), 16);
    EXPECT_EQ(narrow.luma.at<uint8_t>(47, 31), 16 + 31 + 47);
    EXPECT_EQ(narrow.chroma.at<cv::Vec2b>(23, 15), cv::Vec2b(8 + 15 + 23, 24 + 8 + 15 + 23));
    desk::ClipReader half(folder_ / "shape.y4m", {});
    desk::Nv12 small({32, 12});
    ASSERT_TRUE(half.Read(small));
    EXPECT_NEAR(small.luma.at<uint8_t>(6, 16), 24.5 + 32.5, 1);
}

TEST_F(Clips, AreReadAsTheyWereWritten) {
    const std::pair<const char*, double> kinds[] = {{"a.mp4", 3}, {"a.mkv", 0}, {"a.y4m", 0}, {"a", 3}};
    for (const auto& [name, tolerance] : kinds) {
        for (const bool fullRange : {true, false}) {
            const ClipFormat format = {Size, 30000, 1001, fullRange, fullRange ? 5 : 1};
            desk::ClipWriter writer(folder_ / name, format, true);
            for (int number = 0; number < 5; number++) {
                desk::Nv12 picture(Size);
                picture.luma.setTo(LumaOf(number));
                picture.chroma.setTo(cv::Scalar(118, 142));
                writer.Add(picture);
            }
            writer.Complete();
            writer.Publish();
            desk::ClipReader reader(folder_ / name, {});
            const ClipFormat read = reader.Format();
            const bool isFolder = folder_ / name == folder_ / "a";
            EXPECT_EQ(read.size, Size);
            EXPECT_TRUE(isFolder || std::abs(read.FramesPerSecond() - 30000 / 1001.0) < 1e-3) << name;
            EXPECT_EQ(read.fullRange, fullRange || isFolder) << name;
            EXPECT_TRUE(read.matrix == (isFolder ? 5 : format.matrix) || name[2] == 'y') << name;
            desk::Nv12 picture(Size);
            for (int number = 0; number < 5; number++) {
                ASSERT_TRUE(reader.Read(picture));
                if (fullRange || !isFolder) {
                    ExpectFrame(picture, number, tolerance);
                }
            }
            EXPECT_FALSE(reader.Read(picture));
        }
    }
    // A picture has the full range: its luma is (65 - 16) * 255 / 219, and colours are as BT.709 has them.
    const cv::Scalar bgr = cv::mean(cv::imread((folder_ / "a" / "000002.png").string()));
    EXPECT_NEAR(bgr[0], 57.05 + 2.112 * (118 - 128), 2);
    EXPECT_NEAR(bgr[2] - bgr[0], 1.793 * (142 - 128) - 2.112 * (118 - 128), 1);
    EXPECT_THAT(Bytes(folder_ / "a.y4m"), ::testing::StartsWith("YUV4MPEG2 W64 H48 F30000:1001 "));
    EXPECT_EQ(std::filesystem::file_size(folder_ / "a.y4m") % (6 + 64 * 72),
              Bytes(folder_ / "a.y4m").find('\n') + 1);
}

TEST_F(Clips, ThatAreNotFinishedLeaveNothing) {
    {
        desk::ClipWriter writer(folder_ / "a.mkv", {Size}, false);
        writer.Add(desk::Nv12(Size));
        EXPECT_FALSE(std::filesystem::is_empty(folder_));
    }
    EXPECT_TRUE(std::filesystem::is_empty(folder_));
}

TEST(Nv12, HasTheColoursOfAPhotograph) {
    const cv::Mat photo(8, 16, CV_8UC3, cv::Scalar(200, 100, 50));
    desk::Nv12 picture(photo.size());
    desk::WriteNv12(photo, picture);
    EXPECT_EQ(picture.luma.at<uint8_t>(7, 15), 96);  // .299 R + .587 G + .114 B
    EXPECT_NEAR(picture.chroma.at<cv::Vec2b>(3, 7)[0], 128 + .564 * (200 - 96.5), 1);
    EXPECT_NEAR(picture.chroma.at<cv::Vec2b>(3, 7)[1], 128 + .713 * (50 - 96.5), 1);
    EXPECT_LE(cv::norm(ReadNv12(picture), photo, cv::NORM_INF), 2);
}
