#include "desk/dump/dump_checks.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <tuple>
#include <utility>

#include "desk/warp/grid_size.h"
#include "desk/warp/warp_map.h"

namespace desk {
namespace {

/// A motion is a jump when it is this many times the usual one, and more than a share of the mesh's width.
constexpr double JumpFactor = 6;
constexpr double JumpShare = 0.01;
/// Vertices stand still; their last decimal may differ.
constexpr double StillShare = 0.0002;

/// Four decimals round a reach by less than this.
constexpr double ReachTolerance = 0.001;

/// Mean way between the points of two lines, in widths of the mesh.
double Motion(const std::vector<cv::Point2d>& before, const std::vector<cv::Point2d>& after) {
    double sum = 0;
    for (size_t i = 0; i < after.size(); i++) {
        sum += cv::norm(after[i] - before[i]);
    }
    const double width = cv::norm(before[MeshColumns - 1] - before[0]);
    return width > 0 ? sum / static_cast<double>(after.size()) / width : 0;
}

class DumpChecker {
public:
    DumpChecker(DumpReader& reader, WarpSizes sizes) : reader_(reader) {
        check_.kind = reader.Kind();
        check_.sizes = check_.kind == DumpKind::Grid ? sizes : WarpSizes{};
    }

    DumpCheck Run() {
        std::vector<std::optional<uint64_t>> requests;
        for (bool isMore = true; isMore;) {
            try {
                const std::optional<DumpLine> line = reader_.Next();
                isMore = line.has_value();
                if (isMore) {
                    reader_.RequireCoordinates(*line);
                    requests.emplace_back(line->requestId);
                    CheckLine(*line);
                }
            } catch (const DumpError& error) {
                requests.push_back(error.finding.request);
                check_.findings.Add(error.finding);
            }
        }
        CheckOrder(requests, check_.findings);
        CheckJumps();
        CheckReach();
        std::stable_sort(check_.findings.first.begin(), check_.findings.first.end(),
                         [](const DumpFinding& a, const DumpFinding& b) { return a.line < b.line; });
        return std::move(check_);
    }

private:
    void CheckLine(const DumpLine& line) {
        std::vector<cv::Point2d> points = MeshPoints(line, check_.kind);
        CheckFolds(line, points);
        AddFrame(line, points);
        previous_ = std::move(points);
    }

    void CheckFolds(const DumpLine& line, const std::vector<cv::Point2d>& points) {
        const std::vector<cv::Point> folded = FoldedCells(points, MeshColumns);
        if (!folded.empty()) {
            check_.findings.Add(
                {line.number, 0, "fold-over",
                 fmt::format("{} of the mesh's cells have a negative area, the first is column {} of row {}",
                             folded.size(), folded.front().x, folded.front().y),
                 line.requestId});
        }
        if (pictureIsOfFinding_) {
            return;
        }
        pictureIsOfFinding_ = !folded.empty();
        check_.points = points;
        check_.pointsLine = line.number;
    }

    void AddFrame(const DumpLine& line, const std::vector<cv::Point2d>& points) {
        DumpFrame frame{line.number, line.requestId, 0, std::nullopt};
        if (!check_.frames.empty()) {
            // Frames that were left out between two lines had their motion too.
            const uint64_t last = check_.frames.back().requestId;
            const uint64_t frames = line.requestId > last ? line.requestId - last : 1;
            frame.motion = Motion(previous_, points) / static_cast<double>(frames);
        }
        WarpSizes& sizes = check_.sizes;
        if (check_.frames.empty() && sizes.input.empty() && check_.kind == DumpKind::Grid) {
            sizes.input = {static_cast<int>(std::min(line.header[0], MostPixels)),
                           static_cast<int>(std::min(line.header[1], MostPixels))};
        }
        if (sizes.IsKnown()) {
            frame.used = WarpMap(ToGrid(line), sizes.input, sizes.output).MarginUse();
        }
        check_.frames.push_back(frame);
    }

    void CheckJumps() {
        std::vector<double> motions;
        for (size_t i = 1; i < check_.frames.size(); i++) {
            motions.push_back(check_.frames[i].motion);
        }
        if (motions.empty()) {
            return;
        }
        const auto middle = motions.begin() + static_cast<std::ptrdiff_t>(motions.size() / 2);
        std::nth_element(motions.begin(), middle, motions.end());
        const double limit =
            check_.kind == DumpKind::Vertices ? StillShare : std::max(JumpFactor * *middle, JumpShare);
        for (size_t i = 1; i < check_.frames.size(); i++) {
            const DumpFrame& frame = check_.frames[i];
            const uint64_t previous = check_.frames[i - 1].requestId;
            if (frame.motion > limit) {
                check_.findings.Add(
                    {frame.line, 0, "jump",
                     fmt::format("from request {} to {} the mesh moves by {:.2f} % of its width a frame, "
                                 "expected at most {:.2f} %",
                                 previous, frame.requestId, 100 * frame.motion, 100 * limit),
                     frame.requestId, previous});
            }
        }
    }

    void CheckReach() {
        const cv::Size margin = check_.sizes.input - check_.sizes.output;
        for (const Side side : {Left, Top, Right, Bottom}) {
            const double available = (side == Left || side == Right ? margin.width : margin.height) / 2.0;
            const DumpFrame* first = nullptr;
            double most = 0;
            size_t count = 0;
            for (const DumpFrame& frame : check_.frames) {
                const double beyond = frame.used ? (*frame.used)[side] - available : 0;
                if (beyond > ReachTolerance) {
                    first = first == nullptr ? &frame : first;
                    most = std::max(most, beyond);
                    count++;
                }
            }
            if (first != nullptr) {
                check_.findings.Add(
                    {first->line, 0, "reach",
                     fmt::format("request {} is the first of {} to read beyond the input's {} side, by "
                                 "{:.2f} pixels at most",
                                 first->requestId, count, SideNames[side], most),
                     first->requestId, std::nullopt, side, most});
            }
        }
    }

    static constexpr uint32_t MostPixels = 65536;

    DumpReader& reader_;
    DumpCheck check_;
    std::vector<cv::Point2d> previous_;
    bool pictureIsOfFinding_ = false;
};

}  // namespace

void DumpFindings::Add(DumpFinding finding) {
    if (counts[finding.kind]++ < MostOfAKind) {
        first.push_back(std::move(finding));
    }
}

size_t DumpFindings::Count() const {
    return std::accumulate(counts.begin(), counts.end(), size_t{0},
                           [](size_t sum, const auto& kind) { return sum + kind.second; });
}

void CheckOrder(const std::vector<std::optional<uint64_t>>& requests, DumpFindings& findings) {
    struct Line {
        uint64_t request, previous;
        size_t line, unreadable;  ///< how many before it could not be read
    };
    std::vector<Line> readable;
    for (size_t i = 0; i < requests.size(); i++) {
        if (const std::optional<uint64_t>& request = requests[i]) {
            const uint64_t previous = readable.empty() ? *request : readable.back().request;
            readable.push_back({*request, previous, i + 1, i - readable.size()});
        }
    }
    std::sort(readable.begin(), readable.end(), [](const Line& a, const Line& b) {
        return std::tie(a.request, a.line) < std::tie(b.request, b.line);
    });
    const Line* last = nullptr;
    for (const Line& line : readable) {
        const auto report = [&](const char* kind, uint64_t previous, const std::string& why) {
            findings.Add({line.line, 1, kind,
                          fmt::format("request {} follows request {}: {}", line.request, previous, why),
                          line.request, previous});
        };
        const uint64_t between =
            last == nullptr || last->request == line.request ? 0 : line.request - last->request - 1;
        if (last != nullptr && last->request == line.request) {
            report("repeated-request", line.previous, fmt::format("it was already in line {}", last->line));
        } else if (line.previous > line.request) {
            report("reversed-request", line.previous, "expected request ids that rise from line to line");
        }
        const size_t unreadable = last == nullptr ? 0
                                                  : std::max(line.unreadable, last->unreadable) -
                                                        std::min(line.unreadable, last->unreadable);
        if (between > unreadable) {
            report("gap", last->request, fmt::format("{} without a line between them", between));
        }
        last = &line;
    }
}

DumpCheck CheckDump(const std::filesystem::path& file, WarpSizes sizes) {
    DumpReader reader(file);
    return DumpChecker(reader, sizes).Run();
}

}  // namespace desk
