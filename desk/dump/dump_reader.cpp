#include "desk/dump/dump_reader.h"

#include <fmt/format.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <string_view>
#include <system_error>
#include <utility>

#include "desk/output/output.h"

namespace desk {
namespace {

/// Takes a line apart from the left. Errors name the column at which they arise.
class LineScanner {
public:
    LineScanner(const std::filesystem::path& file, size_t line, const std::string& text)
        : file_(file), line_(line), text_(text) {}

    size_t Column() const {
        return at_ + 1;
    }
    bool Skip(std::string_view expected) {
        if (text_.compare(at_, expected.size(), expected) != 0) {
            return false;
        }
        at_ += expected.size();
        return true;
    }
    template <typename Number>
    bool Read(Number& number) {
        const char* end = text_.data() + text_.size();
        const auto [rest, error] = std::from_chars(text_.data() + at_, end, number);
        if (error != std::errc()) {
            return false;
        }
        at_ = static_cast<size_t>(rest - text_.data());
        return true;
    }
    [[noreturn]] void Fail(const std::string& expected) const {
        constexpr size_t Shown = 16;
        const std::string got =
            at_ >= text_.size() ? "the end of the line" : fmt::format("\"{}\"", text_.substr(at_, Shown));
        throw DumpError(file_, line_, Column(), fmt::format("expected {}, got {}", expected, got));
    }

private:
    const std::filesystem::path& file_;
    size_t line_;
    const std::string& text_;
    size_t at_ = 0;
};

/// The values that follow, each after a comma and a blank. A mesh line has every value but the first and the
/// last twice; the copies must agree.
void ReadValues(LineScanner& scanner, DumpKind kind, DumpLine& line) {
    const bool isGrid = kind == DumpKind::Grid;
    const size_t count = isGrid ? GridValueCount : 2 * (MeshValueCount - 1);
    for (size_t i = 0; i < count; i++) {
        double value = 0;
        const bool isAfterComma = scanner.Skip(", ");
        const size_t column = scanner.Column();
        if (!isAfterComma || !scanner.Read(value)) {
            scanner.Fail(
                fmt::format("{}value {} of {}", isAfterComma ? "" : "a comma, a blank and ", i + 1, count));
        }
        if (isGrid || i == 0 || i % 2 == 1) {
            line.values.push_back(value);
            line.columns.push_back(column);
        } else if (std::isfinite(line.values.back()) && value != line.values.back()) {
            scanner.Fail(fmt::format("value {} and its copy to agree, but they are {:.4f} and {:.4f}",
                                     line.values.size(), line.values.back(), value));
        }
    }
}

/// Only a grid has whole numbers, without a decimal point, after its request id.
bool HasGridHeader(const std::string& text) {
    const size_t comma = text.find(", ");
    const size_t next = comma == std::string::npos ? comma : text.find(", ", comma + 2);
    return next != std::string::npos && text.find_first_not_of("0123456789", comma + 2) == next;
}

}  // namespace

DumpError::DumpError(const std::filesystem::path& file, size_t atLine, size_t atColumn,
                     const std::string& why)
    : UsageError(file.string() + (atLine == 0 ? "" : fmt::format(":{}", atLine)) +
                 (atColumn == 0 ? "" : fmt::format(":{}", atColumn)) + ": " + why),
      line(atLine),
      column(atColumn),
      reason(why) {}

DumpReader::DumpReader(std::filesystem::path file)
    : file_(std::move(file)), stream_(gzopen(file_.c_str(), "rb"), &gzclose) {
    if (!stream_ && errno == EACCES) {
        throw std::runtime_error(fmt::format(
            "{} cannot be read: Permission denied; expected a dump file of the node", file_.string()));
    }
    if (!stream_ || std::filesystem::is_directory(file_)) {
        throw DumpError(file_, 0, 0, "cannot be opened, expected a dump file of the node");
    }
    if (!ReadText()) {
        throw DumpError(file_, 0, 0, "expected a dump file of the node, got an empty file");
    }
    if (text_.compare(0, 6, "Frame ") != 0) {
        const bool isMarked = text_.rfind("\xEF\xBB\xBF", 0) == 0 || text_.rfind("\xFF\xFE", 0) == 0;
        throw DumpError(file_, 1, 1,
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
        throw DumpError(file_, std::max<size_t>(line_, 1), 0,
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

DumpLine DumpReader::Parse() {
    DumpLine line;
    line.number = line_;
    LineScanner scanner(file_, line.number, text_);
    if (!scanner.Skip("Frame ") || !scanner.Read(line.requestId)) {
        scanner.Fail("\"Frame \" and a request id");
    }
    request_ = line.requestId;
    if (!text_.empty() && text_.back() == '\r') {
        throw DumpError(
            file_, line_, text_.size(),
            "expected a line feed alone at the line's end, got a carriage return before it (CRLF), "
            "with which Windows ends lines");
    }
    if (kind_ == DumpKind::Grid) {
        for (uint32_t& number : line.header) {
            if (!scanner.Skip(", ") || !scanner.Read(number)) {
                scanner.Fail("a whole number of the header");
            }
        }
    }
    ReadValues(scanner, kind_, line);
    if (!scanner.Skip(" ") || scanner.Column() <= text_.size()) {
        scanner.Fail(fmt::format("a blank and the end of the line after {} values", line.columns.size()));
    }
    if (!isComplete_) {
        scanner.Fail("a line feed: the file is cut off");
    }
    return line;
}

}  // namespace desk
