#pragma once

#include <opencv2/core.hpp>

namespace desk {

/// How far 8-bit planes lie from their ideal, over all samples of all pictures.
class PlaneMeter {
public:
    /// `mask` tells which samples count, all when it is empty; `limit` is what a sample may be off, in
    /// levels.
    explicit PlaneMeter(cv::Mat mask = {}, int limit = 0) : mask_(std::move(mask)), limit_(limit) {}

    /// Takes a plane and its ideal, of equal size and channels. Returns the difference, 0 where no sample
    /// counts.
    cv::Mat Add(const cv::Mat& plane, const cv::Mat& ideal);

    /// In levels.
    int Max() const {
        return max_;
    }
    double Mean() const {
        return sum_ / samples_;
    }
    /// Share of the samples that are off by no more than the limit, 0 to 1.
    double ShareWithinLimit() const {
        return 1 - beyond_ / samples_;
    }
    /// Peak signal-to-noise ratio over everything added, in dB; infinite when nothing differs.
    double Psnr() const {
        return Decibels(squares_ / samples_);
    }
    /// Of the worst picture.
    double WorstPsnr() const {
        return Decibels(worstMean_);
    }

private:
    static double Decibels(double meanSquare);

    cv::Mat mask_;
    int limit_;
    int max_ = 0;
    double sum_ = 0;
    double squares_ = 0;
    double beyond_ = 0;
    double samples_ = 0;
    double worstMean_ = 0;
};

}  // namespace desk
