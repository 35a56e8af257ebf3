#include "desk/run/replay.h"

#include <fmt/format.h>

#include <utility>

#include "desk/base/usage_error.h"

namespace desk {
namespace {

NodeSizing ReplaySizing(const ReplayOptions& options, cv::Size clip) {
    const cv::Size output = options.size.value_or(clip);
    return {output, MarginFor(clip, output)};
}

}  // namespace

Replay::Replay(const std::string& command, const ReplayOptions& options, Pipeline::Observer observer)
    : options_(options),
      reader_(options.clip, options.frames, options.onDamage),
      dump_(options.grids, reader_.Format().size),
      pipeline_(command, options, reader_, ReplaySizing(options, reader_.Format().size), 0,
                std::move(observer)) {}

void Replay::Run() {
    while (pipeline_.Read()) {
        const GridDump::Line& line = LineOf(reader_.Frame());
        pipeline_.Show(line.requestId, line.grid);
    }
    pipeline_.Drain();
}

const GridDump::Line& Replay::LineOf(int64_t frame) const {
    const auto n = static_cast<size_t>(frame);
    if (!options_.firstRequest) {
        if (n >= dump_.Lines().size()) {
            throw UsageError(fmt::format(
                "the grid dump has {} lines and none for frame {} of the clip; --frames names the "
                "frames to take",
                dump_.Lines().size(), frame));
        }
        return dump_.Lines()[n];
    }
    const std::optional<size_t> line = dump_.Find(*options_.firstRequest + n);
    if (!line) {
        throw UsageError(
            fmt::format("the grid dump has no line of request {}, which frame {} of the clip needs",
                        *options_.firstRequest + n, frame));
    }
    return dump_.Lines()[*line];
}

}  // namespace desk
