#include "desk/host/services/log_sink.h"

#include <fmt/chrono.h>
#include <fmt/core.h>
#include <unistd.h>

#include <chrono>
#include <ctime>
#include <utility>

namespace desk {

LogSink::LogSink(std::ostream* stream) : stream_(stream) {}

void LogSink::SetObserver(std::function<void(const LogRecord&)> observer) {
    const std::lock_guard<std::mutex> lock(mutex_);
    observer_ = std::move(observer);
}

void LogSink::Write(const LogRecord& record) {
    const std::string text =
        fmt::format("{}:{} {}() {}", record.file, record.line, record.function, record.text);
    const std::lock_guard<std::mutex> lock(mutex_);
    Print(record.levelLetter, "DEWARP", text);
    if (observer_) {
        observer_(record);
    }
}

void LogSink::WriteOwn(std::string_view text) {
    const std::lock_guard<std::mutex> lock(mutex_);
    Print("W", "DESK", text);
}

void LogSink::Print(std::string_view letter, std::string_view tag, std::string_view text) {
    if (stream_ == nullptr) {
        return;
    }
    using std::chrono::milliseconds;
    const auto now = std::chrono::system_clock::now();
    const auto millis = std::chrono::duration_cast<milliseconds>(now.time_since_epoch()) % 1000;
    const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    std::tm local = {};
    ::localtime_r(&seconds, &local);
    *stream_ << fmt::format("{:%m-%d %H:%M:%S}.{:03} {:5} {:5} {} {:<8}: {}\n", local, millis.count(),
                            ::getpid(), ::gettid(), letter, tag, text)
             << std::flush;
}

}  // namespace desk
