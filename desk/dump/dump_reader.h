#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "desk/base/usage_error.h"
#include "desk/dump/dump_line.h"

struct gzFile_s;

namespace desk {

/// Something in a dump that cannot be read or used. The text is the reason after file, line and column.
struct DumpError : UsageError {
    /// Line and column count from 1; 0 leaves them out.
    DumpError(const std::filesystem::path& file, size_t atLine, size_t atColumn, const std::string& why);

    size_t line;
    size_t column;
    std::string reason;
};

/// Reads a dump line by line, as the node wrote it or compressed by gzip.
class DumpReader {
public:
    /// Tells the kind by the first line. Throws DumpError when there is no such file, it is empty or no dump,
    /// or an editor has made another file of it; std::runtime_error when it may not be read.
    explicit DumpReader(std::filesystem::path file);

    DumpKind Kind() const {
        return kind_;
    }
    const std::filesystem::path& File() const {
        return file_;
    }

    /// The next line; empty at the end of the file. Throws DumpError for a malformed or short line; the next
    /// call then goes on with the line after it. What cannot be read any further ends there.
    std::optional<DumpLine> Next();

    /// The request id of the line that was read last; empty when it has none that can be read.
    std::optional<uint64_t> Request() const {
        return request_;
    }

private:
    bool ReadText();
    DumpLine Parse();

    std::filesystem::path file_;
    std::unique_ptr<gzFile_s, int (*)(gzFile_s*)> stream_;
    size_t line_ = 0;   ///< that was read last
    std::string text_;  ///< of it
    std::optional<uint64_t> request_;
    bool isComplete_ = false;
    bool isAhead_ = true;  ///< the line has yet to be given out
    DumpKind kind_ = DumpKind::Grid;
};

}  // namespace desk
