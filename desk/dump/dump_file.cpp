#include "desk/dump/dump_file.h"

#include <fmt/format.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <ostream>
#include <system_error>
#include <utility>

#include "desk/output/output.h"

namespace desk {
namespace {

/// Only a grid has whole numbers, without a decimal point, after its request id.
bool HasGridHeader(const std::string& text) {
    const size_t comma = text.find(", ");
    const size_t next = comma == std::string::npos ? comma : text.find(", ", comma + 2);
    return next != std::string::npos && text.find_first_not_of("0123456789", comma + 2) == next;
}

}  // namespace

const char* NameOf(DumpKind kind) {
    constexpr const char* Names[] = {"grid", "texture coordinate", "vertex"};
    return Names[static_cast<size_t>(kind)];
}

void WriteGridLine(std::ostream& out, uint64_t requestId, const IPEICAGridTransform& grid) {
    out << fmt::format("Frame {}, {}, {}", requestId, grid.dumpValue0, grid.dumpValue1);
    for (size_t i = 0; i < GridPoints; i++) {
        const GridPoint& point = grid.gridTransformArray[i];
        out << fmt::format(", {:.4f}, {:.4f}", static_cast<double>(point.x), static_cast<double>(point.y));
    }
    out << " \n";
}

IPEICAGridTransform ToGrid(const DumpLine& line) {
    IPEICAGridTransform grid{};
    grid.gridTransformEnable = 1;
    grid.dumpValue0 = line.header[0];
    grid.dumpValue1 = line.header[1];
    for (size_t i = 0; i < GridPoints; i++) {
        grid.gridTransformArray[i] = {static_cast<float>(line.values[2 * i]),
                                      static_cast<float>(line.values[2 * i + 1])};
    }
    return grid;
}

std::vector<cv::Point2d> MeshPoints(const DumpLine& line, DumpKind kind) {
    std::vector<cv::Point2d> points;
    for (size_t i = 0; i < line.values.size() / 2; i++) {
        const size_t column = i % GridColumns;
        const size_t row = i / GridColumns;
        const bool isBorder = column == 0 || column == GridColumns - 1 || row == 0 || row == GridRows - 1;
        if (kind != DumpKind::Grid || !isBorder) {
            points.emplace_back(line.values[2 * i], line.values[2 * i + 1]);
        }
    }
    return points;
}

DumpError::DumpError(const std::filesystem::path& file, DumpFinding what)
    : UsageError(file.string() + (what.line == 0 ? "" : fmt::format(":{}", what.line)) +
                 (what.column == 0 ? "" : fmt::format(":{}", what.column)) + ": " + what.text),
      finding(std::move(what)) {}

DumpReader::DumpReader(std::filesystem::path file)
    : file_(std::move(file)), stream_(gzopen(file_.c_str(), "rb"), &gzclose) {
    if (!stream_ && errno == EACCES) {
        throw std::runtime_error(fmt::format(
            "{} cannot be read: Permission denied; expected a dump file of the node", file_.string()));
    }
    if (!stream_ || std::filesystem::is_directory(file_)) {
        Refuse(0, 0, "cannot be opened, expected a dump file of the node");
    }
    if (!ReadText()) {
        Refuse(0, 0, "expected a dump file of the node, got an empty file");
    }
    if (text_.compare(0, 6, "Frame ") != 0) {
        const bool isMarked = text_.rfind("\xEF\xBB\xBF", 0) == 0 || text_.rfind("\xFF\xFE", 0) == 0;
        Refuse(1, 1,
               fmt::format("expected a dump file of the node, whose lines begin with \"Frame \"{}",
                           isMarked ? ", got a byte order mark (BOM), as editors write it" : ""));
    }
    kind_ = HasGridHeader(text_) ? DumpKind::Grid : DumpKind::TexCoordinates;
    if (kind_ != DumpKind::Grid) {
        // The two mesh files look alike but for their values: those of the vertices lie about 0.
        try {
            const DumpLine first = Parse();
            const double middle = (first.values[0] + first.values[size_t{2} * (MeshColumns - 1)]) / 2;
            kind_ = std::abs(middle) < 0.25 ? DumpKind::Vertices : DumpKind::TexCoordinates;
        } catch (const DumpError&) {
            kind_ = DumpKind::TexCoordinates;  // Next will report the line
        }
    }
}

bool DumpReader::ReadText() {
    constexpr size_t MostBytes = 1 << 20;  // ten times what a line of the largest numbers has
    text_.clear();
    request_.reset();
    int byte = -1;
    while (stream_ && text_.size() < MostBytes && (byte = gzgetc(stream_.get())) != -1 && byte != '\n') {
        text_.push_back(static_cast<char>(byte));
    }
    isComplete_ = byte == '\n';
    line_ += isComplete_ || !text_.empty() ? 1U : 0U;
    int error = Z_OK;
    static_cast<void>(stream_ ? gzerror(stream_.get(), &error) : nullptr);
    if (error < 0 || text_.size() == MostBytes) {
        stream_.reset();
        Refuse(std::max<size_t>(line_, 1), 0,
               error == Z_ERRNO ? "cannot be read any further: " + ReasonText(errno)
               : error < 0      ? "what gzip has compressed is damaged or cut off"
                                : "expected a dump's line, got one of more than a million bytes");
    }
    return isComplete_ || !text_.empty();
}

std::optional<DumpLine> DumpReader::Next() {
    if (!isAhead_ && !ReadText()) {
        return std::nullopt;
    }
    isAhead_ = false;
    return Parse();
}

void DumpReader::RequireCoordinates(const DumpLine& line) const {
    constexpr double MaxCoordinate = 65536;
    const auto isBad = [](double value) { return !(std::abs(value) <= MaxCoordinate); };  // NaN is
    const auto bad = std::find_if(line.values.begin(), line.values.end(), isBad);
    if (bad == line.values.end()) {
        return;
    }
    const auto more = std::count_if(bad + 1, line.values.end(), isBad);
    const size_t column = line.columns[static_cast<size_t>(bad - line.values.begin())];
    throw DumpError(file_,
                    {line.number, column, std::isfinite(*bad) ? "out-of-range" : "not-finite",
                     fmt::format("expected a coordinate within {} pixels, got {:.4f}{}", MaxCoordinate, *bad,
                                 more == 0 ? "" : fmt::format(" and {} more such in the line", more)),
                     line.requestId});
}

bool DumpReader::Skip(std::string_view expected) {
    const bool isNext = text_.compare(at_, expected.size(), expected) == 0;
    at_ += isNext ? expected.size() : 0;
    return isNext;
}

template <typename Number>
bool DumpReader::Read(Number& number) {
    const auto [rest, error] = std::from_chars(text_.data() + at_, text_.data() + text_.size(), number);
    at_ = error == std::errc() ? static_cast<size_t>(rest - text_.data()) : at_;
    return error == std::errc();
}

void DumpReader::Refuse(size_t line, size_t column, const std::string& why) const {
    throw DumpError(file_, {line, column, "malformed", why, request_});
}

void DumpReader::Miss(const std::string& expected) const {
    constexpr size_t Shown = 16;
    const std::string got =
        at_ >= text_.size() ? "the end of the line" : fmt::format("\"{}\"", text_.substr(at_, Shown));
    Refuse(line_, at_ + 1, fmt::format("expected {}, got {}", expected, got));
}

DumpLine DumpReader::Parse() {
    DumpLine line;
    line.number = line_;
    at_ = 0;
    if (!Skip("Frame ") || !Read(line.requestId)) {
        Miss("\"Frame \" and a request id");
    }
    request_ = line.requestId;
    if (!text_.empty() && text_.back() == '\r') {
        Refuse(line_, text_.size(),
               "expected a line feed alone at the line's end, got a carriage return before it (CRLF), "
               "with which Windows ends lines");
    }
    if (kind_ == DumpKind::Grid) {
        for (uint32_t& number : line.header) {
            if (!Skip(", ") || !Read(number)) {
                Miss("a whole number of the header");
            }
        }
    }
    ParseValues(line);
    if (!Skip(" ") || at_ < text_.size()) {
        Miss(fmt::format("a blank and the end of the line after {} values", line.columns.size()));
    }
    if (!isComplete_) {
        Miss("a line feed: the file is cut off");
    }
    return line;
}

/// The values that follow, each after a comma and a blank. A mesh line has every value but the first and the
/// last twice; the copies must agree.
void DumpReader::ParseValues(DumpLine& line) {
    const bool isGrid = kind_ == DumpKind::Grid;
    const size_t count = isGrid ? GridValueCount : 2 * (MeshValueCount - 1);
    for (size_t i = 0; i < count; i++) {
        double value = 0;
        const bool isAfterComma = Skip(", ");
        const size_t column = at_ + 1;
        if (!isAfterComma || !Read(value)) {
            Miss(fmt::format("{}value {} of {}", isAfterComma ? "" : "a comma, a blank and ", i + 1, count));
        }
        if (isGrid || i == 0 || i % 2 == 1) {
            line.values.push_back(value);
            line.columns.push_back(column);
        } else if (std::isfinite(line.values.back()) && value != line.values.back()) {
            Miss(fmt::format("value {} and its copy to agree, but they are {:.4f} and {:.4f}",
                             line.values.size(), line.values.back(), value));
        }
    }
}

}  // namespace desk
