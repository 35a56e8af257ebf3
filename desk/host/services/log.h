#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <ostream>
#include <string>
#include <string_view>

namespace desk {

/// One line that the library logged.
struct LogRecord {
    std::string levelWord;    ///< "[ERROR  ]"
    std::string levelLetter;  ///< "E"
    std::string file;
    std::string function;
    int32_t line = 0;
    std::string format;  ///< the bare message format
    std::string text;    ///< the message, formatted
};

/// Where log lines go: a stream, in logcat's threadtime form, and an observer. Both are optional.
/// Thread safe; lines and observer calls never overlap.
class Log {
public:
    /// `stream` may be null and must outlive the log.
    explicit Log(std::ostream* stream);

    /// Sees every line that the library logs, whatever thread it comes from; empty for none.
    void SetObserver(std::function<void(const LogRecord&)> observer);

    /// A line of the library, under the tag DEWARP.
    void Write(const LogRecord& record);
    /// A line of the host's own, under the tag DESK.
    void WriteOwn(std::string_view text);

private:
    void Print(std::string_view letter, std::string_view tag, std::string_view text);

    std::mutex mutex_;
    std::ostream* const stream_;
    std::function<void(const LogRecord&)> observer_;
};

}  // namespace desk
