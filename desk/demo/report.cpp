#include "desk/demo/report.h"

#include <fmt/format.h>

#include <cmath>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace desk {
namespace {

using Json = nlohmann::ordered_json;

constexpr int SchemaVersion = 1;
constexpr double MaxMotionAfter = 0.3;  // pixels RMS
constexpr double MinSteadying = 30;     // motion before over motion after
constexpr double MinLumaPsnr = 32;      // dB

double Rounded(double value) {
    return std::round(value * 1000) / 1000;
}

Json SizeJson(cv::Size size, const Alignment& alignment) {
    return {{"width", size.width},
            {"height", size.height},
            {"stride_alignment", alignment.strideAlignment},
            {"scanline_alignment", alignment.scanlineAlignment}};
}

Json OptionsJson(const DemoOptions& options) {
    return {{"photo",
             {{"file", options.photo.file.string()},
              {"author", options.photo.author},
              {"licence", options.photo.licence}}},
            {"seed", options.seed},
            {"frames", options.frames},
            {"frames_per_second", options.framesPerSecond},
            {"requested_margin",
             {{"horizontal", Rounded(options.margin.horizontal)},
              {"vertical", Rounded(options.margin.vertical)}}}};
}

Json ResultJson(const VariantResult& result) {
    Json json = {
        {"input", SizeJson(result.input, result.inputAlignment)},
        {"output", SizeJson(result.output, result.outputAlignment)},
        {"motion_px_rms", {{"before", Rounded(result.motionBefore)}, {"after", Rounded(result.motionAfter)}}},
        {"psnr_db",
         {{"luma", Rounded(result.lumaPsnr)},
          {"luma_worst_frame", Rounded(result.lumaPsnrWorst)},
          {"chroma", Rounded(result.chromaPsnr)},
          {"chroma_worst_frame", Rounded(result.chromaPsnrWorst)}}},
        {"node_call_ms",
         {{"p50", Rounded(result.nodeCall.p50)},
          {"p95", Rounded(result.nodeCall.p95)},
          {"max", Rounded(result.nodeCall.max)}}},
        {"findings", result.findings},
        {"missed_limits", MissedLimits(result)}};
    if (!result.renderer.empty()) {
        json["gl_renderer"] = result.renderer;
    }
    return json;
}

}  // namespace

std::vector<std::string> MissedLimits(const VariantResult& result) {
    std::vector<std::string> missed;
    if (!(result.motionAfter <= MaxMotionAfter)) {
        missed.push_back(fmt::format("the steadied clip moves by {:.3f} pixels RMS, the limit is {}",
                                     result.motionAfter, MaxMotionAfter));
    }
    if (!(result.motionAfter * MinSteadying <= result.motionBefore)) {
        missed.push_back(fmt::format("motion went from {:.3f} to {:.3f} pixels RMS, it has to shrink to 1/{}",
                                     result.motionBefore, result.motionAfter, MinSteadying));
    }
    if (!(result.lumaPsnr >= MinLumaPsnr)) {
        missed.push_back(fmt::format("luma PSNR against the ideal output is {:.2f} dB, the limit is {}",
                                     result.lumaPsnr, MinLumaPsnr));
    }
    if (!result.findings.empty()) {
        missed.push_back(fmt::format("the host found {} broken rules, none is allowed; the first: {}",
                                     result.findings.size(), result.findings.front()));
    }
    return missed;
}

void WriteReport(const std::filesystem::path& file, const DemoOptions& options, Variant variant,
                 const VariantResult& result) {
    Json json = {{"schema", SchemaVersion}, {"variant", NameOf(variant)}};
    json.update(OptionsJson(options));
    json.update(ResultJson(result));
    std::ofstream out(file);
    out << json.dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
    out.close();
    if (!out) {
        throw std::runtime_error(fmt::format("{} cannot be written", file.string()));
    }
}

}  // namespace desk
