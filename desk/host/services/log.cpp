#include "desk/host/services/log.h"

#include <fmt/chrono.h>
#include <fmt/core.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <iterator>
#include <memory>
#include <utility>

#include "desk/host/services/host_state.h"
#include "host/lumlog.h"

uint32_t g_enableLuxLogs = 0;
uint32_t g_enableSystemLog = 0;

namespace desk {
namespace {

struct LogLevel {
    std::string_view word;
    std::string_view letter;
    uint32_t bit;
};
constexpr LogLevel LogLevels[] = {
    {"[ERROR  ]", "E", 1}, {"[WARN   ]", "W", 2}, {"[INFO   ]", "I", 8}, {"[VERBOSE]", "V", 32}};

void RequireLevel(Contract& contract, const LogRecord& record) {
    const auto* level = std::find_if(std::begin(LogLevels), std::end(LogLevels),
                                     [&](const LogLevel& known) { return known.word == record.levelWord; });
    if (contract.Require(level != std::end(LogLevels), "logs at the unknown level \"{}\"",
                         record.levelWord)) {
        contract.Require(level->letter == record.levelLetter, "logs at the level {} with the letter {}",
                         record.levelWord, record.levelLetter);
        contract.Require((g_enableLuxLogs & level->bit) != 0, "logs at the level {}, which is switched off",
                         record.levelWord);
    }
}

__attribute__((format(printf, 1, 0))) std::string Formatted(const char* format, va_list arguments) {
    char* text = nullptr;
    const int length = ::vasprintf(&text, format, arguments);
    const std::unique_ptr<char, decltype(&std::free)> owner(length < 0 ? nullptr : text, &std::free);
    return std::string(TextOf(owner.get()));
}

}  // namespace

Log::Log(std::ostream* stream) : stream_(stream) {}

void Log::SetObserver(std::function<void(const LogRecord&)> observer) {
    const std::lock_guard<std::mutex> lock(mutex_);
    observer_ = std::move(observer);
}

void Log::Write(const LogRecord& record) {
    const std::string text =
        fmt::format("{}:{} {}() {}", record.file, record.line, record.function, record.text);
    const std::lock_guard<std::mutex> lock(mutex_);
    Print(record.levelLetter, "DEWARP", text);
    if (observer_) {
        observer_(record);
    }
}

void Log::WriteOwn(std::string_view text) {
    const std::lock_guard<std::mutex> lock(mutex_);
    Print("W", "DESK", text);
}

void Log::Print(std::string_view letter, std::string_view tag, std::string_view text) {
    if (stream_ == nullptr) {
        return;
    }
    using std::chrono::milliseconds;
    const auto now = std::chrono::system_clock::now();
    const auto millis = std::chrono::duration_cast<milliseconds>(now.time_since_epoch()) % 1000;
    const std::tm local = fmt::localtime(std::chrono::system_clock::to_time_t(now));
    *stream_ << fmt::format("{:%m-%d %H:%M:%S}.{:03} {:5} {:5} {} {:<8}: {}\n", local, millis.count(),
                            ::getpid(), ::gettid(), letter, tag, text)
             << std::flush;
}

}  // namespace desk

void LumLog::LogSystem(const char* levelWord, const char* levelLetter, const char* fileName,
                       const char* functionName, int32_t line, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const std::string text = format != nullptr ? desk::Formatted(format, arguments) : "";
    va_end(arguments);
    const desk::ServiceCall call(desk::service::LogSystem, text);
    if (call.Needs({levelWord, levelLetter, fileName, functionName, format})) {
        const desk::LogRecord record = {
            levelWord, levelLetter, fileName, functionName, line, std::string(desk::TextOf(format)), text};
        desk::RequireLevel(call->contract, record);
        call->log.Write(record);
    }
}
