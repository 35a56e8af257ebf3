#include "desk/tool/truth/hand_shake.h"

#include <cmath>
#include <random>

namespace desk {
namespace {

constexpr double Pi = 3.14159265358979323846;
constexpr double ShiftAt1Hz = 0.018;  // of the picture's height
constexpr double RollAt1Hz = 0.0085;  // radians

}  // namespace

HandShake::HandShake(uint32_t seed, int pictureHeight, double strength) {
    std::mt19937 engine(seed);
    // The standard distributions may differ from library to library; the engine's own numbers may not.
    const auto fraction = [&engine] { return static_cast<double>(engine()) / 4294967296.0; };
    const auto draw = [&fraction](double amplitudeAt1Hz) {
        Waves waves{};
        for (size_t i = 0; i < waves.size(); i++) {
            const double frequency = static_cast<double>(i) + 1 + fraction();
            // A hand's fast movements are small ones: each band adds the same speed.
            waves[i] = {amplitudeAt1Hz / frequency, frequency, 2 * Pi * fraction()};
        }
        return waves;
    };
    x_ = draw(strength * ShiftAt1Hz * pictureHeight);
    y_ = draw(strength * ShiftAt1Hz * pictureHeight);
    roll_ = draw(strength * RollAt1Hz);
    bound_ = {Reach(x_), Reach(y_), Reach(roll_)};
}

CameraPose HandShake::At(double seconds) const {
    return {Sum(x_, seconds), Sum(y_, seconds), Sum(roll_, seconds)};
}

double HandShake::Sum(const Waves& waves, double seconds) {
    double sum = 0;
    for (const Wave& wave : waves) {
        sum += wave.amplitude * std::sin(2 * Pi * wave.frequency * seconds + wave.phase);
    }
    return sum;
}

double HandShake::Reach(const Waves& waves) {
    double sum = 0;
    for (const Wave& wave : waves) {
        sum += wave.amplitude;
    }
    return sum;
}

}  // namespace desk
