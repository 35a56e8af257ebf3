#pragma once

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

#include "desk/base/usage_error.h"
#include "desk/dump/dump_line.h"

namespace desk {

/// Something in a dump that cannot be read or used. The text is the reason after file, line and column.
struct DumpError : UsageError {
    /// Line and column count from 1; 0 leaves them out.
    DumpError(const std::filesystem::path& file, size_t atLine, size_t atColumn, const std::string& why);

    size_t line;
    size_t column;
    std::string reason;
};

/// Reads a dump line by line.
class DumpReader {
public:
    /// Tells the kind by the first line. Throws DumpError when there is no such file, it is empty or no dump;
    /// std::runtime_error when it may not be read.
    explicit DumpReader(std::filesystem::path file);

    DumpKind Kind() const {
        return kind_;
    }
    const std::filesystem::path& File() const {
        return file_;
    }

    /// The next line; empty at the end of the file. Throws DumpError for a malformed or short line; the next
    /// call then goes on with the line after it.
    std::optional<DumpLine> Next();

private:
    bool ReadText();
    DumpLine Parse() const;

    std::filesystem::path file_;
    std::ifstream stream_;
    size_t line_ = 0;   ///< that was read last
    std::string text_;  ///< of it
    bool isComplete_ = false;
    bool isAhead_ = true;  ///< the line has yet to be given out
    DumpKind kind_ = DumpKind::Grid;
};

}  // namespace desk
