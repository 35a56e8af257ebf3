#include <gtest/gtest.h>

#include <opencv2/imgcodecs.hpp>

#include "desk/clip/clip_reader.h"
#include "desk/clip/clip_writer.h"
#include "tests/support/folder.h"

using desk::ClipFormat;

namespace {

const cv::Size Size(64, 48);

int LumaOf(int number) {
    return 60 + 5 * number;
}

}  // namespace

TEST(Clips, AreReadAsTheyWereWritten) {
    const TemporaryFolder folder;
    const std::pair<const char*, double> kinds[] = {{"a.mp4", 3}, {"a.mkv", 0}, {"a.y4m", 0}, {"a", 3}};
    for (const auto& [name, tolerance] : kinds) {
        for (const bool fullRange : {true, false}) {
            ClipFormat format = {Size, {30000, 1001}};
            format.range = fullRange ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
            format.matrix = fullRange ? AVCOL_SPC_BT470BG : AVCOL_SPC_BT709;
            desk::ClipWriter writer(folder.path / name, format, true);
            for (int number = 0; number < 5; number++) {
                desk::Nv12 picture(Size);
                picture.luma.setTo(LumaOf(number));
                picture.chroma.setTo(cv::Scalar(118, 142));
                writer.Add(picture);
            }
            writer.Complete();
            writer.Publish();
            desk::ClipReader reader(folder.path / name, {});
            const ClipFormat read = reader.Format();
            const bool isFolder = folder.path / name == folder.path / "a";
            EXPECT_EQ(read.size, Size);
            EXPECT_TRUE(isFolder || std::abs(av_q2d(read.rate) - 30000 / 1001.0) < 1e-3) << name;
            EXPECT_EQ(read.range == AVCOL_RANGE_JPEG, fullRange || isFolder) << name;
            EXPECT_TRUE(read.matrix == (isFolder ? AVCOL_SPC_BT470BG : format.matrix) || name[2] == 'y')
                << name;
            desk::Nv12 picture(Size);
            for (int number = 0; number < 5; number++) {
                ASSERT_TRUE(reader.Read(picture));
                const cv::Scalar colour = cv::mean(picture.chroma);
                if (fullRange || !isFolder) {
                    EXPECT_NEAR(cv::mean(picture.luma)[0], LumaOf(number), tolerance) << name;
                    EXPECT_NEAR(colour[0], 118, tolerance) << name;
                    EXPECT_NEAR(colour[1], 142, tolerance) << name;
                }
            }
            EXPECT_FALSE(reader.Read(picture));
        }
    }
    // A picture has the full range: its luma is (65 - 16) * 255 / 219, and colours are as BT.709 has them.
    const cv::Scalar bgr = cv::mean(cv::imread((folder.path / "a" / "000002.png").string()));
    EXPECT_NEAR(bgr[0], 57.05 + 2.112 * (118 - 128), 2);
    EXPECT_NEAR(bgr[2] - bgr[0], 1.793 * (142 - 128) - 2.112 * (118 - 128), 1);
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
