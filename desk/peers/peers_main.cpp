#include <fmt/format.h>

#include <exception>
#include <opencv2/videostab.hpp>
#include <string>

#include "desk/clip/clip_reader.h"
#include "desk/clip/clip_writer.h"
#include "desk/clip/nv12.h"
#include "desk/measure/motion_meter.h"
#include "desk/measure/quality.h"

// What comparing the desk with other stabilisers takes beside the desk itself: OpenCV's video stabiliser on a
// clip, and the same measurements for everybody's clip.

namespace desk {
namespace {

constexpr int Radius = 30;       // frames on either side, as the desk's window
constexpr float Deviation = 15;  // frames; the module's own choice, the root of the radius, steadies far less

/// A clip for OpenCV's stabiliser. The stabiliser reads it twice, so the clip is opened anew by reset.
class ClipSource : public cv::videostab::IFrameSource {
public:
    explicit ClipSource(std::string clip) : clip_(std::move(clip)) {
        ClipSource::reset();
    }
    void reset() final {
        reader_ = std::make_unique<ClipReader>(clip_, FrameRange{});
        picture_ = Nv12(reader_->Format().size);
    }
    cv::Mat nextFrame() override {
        return reader_->Read(picture_) ? ReadNv12(picture_) : cv::Mat();
    }
    const ClipFormat& Format() const {
        return reader_->Format();
    }

private:
    std::string clip_;
    std::unique_ptr<ClipReader> reader_;
    Nv12 picture_{cv::Size(2, 2)};
};

void Stabilise(const std::string& clip, const std::string& out, cv::Size size) {
    const cv::Ptr<ClipSource> source = cv::makePtr<ClipSource>(clip);
    const auto ransac = cv::makePtr<cv::videostab::MotionEstimatorRansacL2>(cv::videostab::MM_RIGID);
    const auto motion = cv::makePtr<cv::videostab::KeypointBasedMotionEstimator>(ransac);
    motion->setDetector(cv::GFTTDetector::create(1000));
    cv::videostab::TwoPassStabilizer stabiliser;
    stabiliser.setLog(cv::makePtr<cv::videostab::NullLog>());
    stabiliser.setFrameSource(source);
    stabiliser.setMotionEstimator(motion);
    stabiliser.setMotionStabilizer(cv::makePtr<cv::videostab::GaussianMotionFilter>(Radius, Deviation));
    stabiliser.setRadius(Radius);
    stabiliser.setBorderMode(cv::BORDER_REPLICATE);
    ClipFormat format = source->Format();
    Nv12 whole(format.size);
    format.size = size;
    ClipWriter writer(out, format, true);
    for (cv::Mat steady = stabiliser.nextFrame(); !steady.empty(); steady = stabiliser.nextFrame()) {
        WriteNv12(steady, whole);
        writer.Add(Middle(whole, size));
    }
    writer.Complete();
    writer.Publish();
}

/// One line: frames, luma PSNR over all frames and without the first ones, motion between frames.
void Measure(const std::string& clip, const std::string& truth, int64_t first) {
    ClipReader steady(clip, {});
    ClipReader ideal(truth, {});
    Nv12 picture(steady.Format().size);
    Nv12 wanted(ideal.Format().size);
    PlaneMeter all;
    PlaneMeter settled;
    MotionMeter motion;
    while (steady.Read(picture) && ideal.Read(wanted)) {
        all.Add(picture.luma, wanted.luma);
        if (steady.Frame() >= first) {
            settled.Add(picture.luma, wanted.luma);
        }
        motion.Add(picture.luma);
    }
    fmt::print("{} {:.2f} {:.2f} {:.3f}\n", steady.Frame() + 1, all.Psnr(), settled.Psnr(), motion.Rms());
}

int Run(int argc, char** argv) {
    const std::string command = argc > 1 ? argv[1] : "";
    if (command == "videostab" && argc == 6) {
        Stabilise(argv[2], argv[3], {std::stoi(argv[4]), std::stoi(argv[5])});
        return 0;
    }
    if (command == "measure" && argc == 5) {
        Measure(argv[2], argv[3], std::stoi(argv[4]));
        return 0;
    }
    fmt::print(
        stderr,
        "expected: desk-peers videostab CLIP OUT WIDTH HEIGHT, or desk-peers measure CLIP TRUTH FIRST\n");
    return 2;
}

}  // namespace
}  // namespace desk

int main(int argc, char** argv) {
    try {
        return desk::Run(argc, argv);
    } catch (const std::exception& error) {
        fmt::print(stderr, "desk-peers: {}\n", error.what());
        return 3;
    }
}
