#pragma once

#include <array>
#include <cstdint>

namespace desk {

/// Where the camera points at one moment, against a camera that stands still.
struct CameraPose {
    double x = 0;     ///< scene pixels, to the right
    double y = 0;     ///< scene pixels, down
    double roll = 0;  ///< radians, from +x towards +y
};

/// The tremor of a hand: band-limited pseudo-random translation and roll, known at every moment.
/// One seed gives one path, on every machine.
class HandShake {
public:
    /// The translation grows with the height of the picture that is filmed, in pixels, so that the shake
    /// looks alike at every size: about 10 pixels RMS between two frames of a 1080-line clip at 30 per
    /// second for a strength of 1.
    HandShake(uint32_t seed, int pictureHeight, double strength = 1);

    CameraPose At(double seconds) const;

    /// No pose of the path is larger than this, in any of its three members.
    const CameraPose& Bound() const {
        return bound_;
    }

private:
    struct Wave {
        double amplitude;
        double frequency;  // Hz
        double phase;      // radians
    };
    static constexpr int WaveCount = 7;  // one in each band of 1 Hz, from 1 to 8 Hz
    using Waves = std::array<Wave, WaveCount>;

    static double Sum(const Waves& waves, double seconds);
    static double Reach(const Waves& waves);

    Waves x_;
    Waves y_;
    Waves roll_;
    CameraPose bound_;
};

}  // namespace desk
