#include "tests/support/node_fixture.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <utility>

desk::HostOptions OptionsFor(const std::filesystem::path& dumpDir) {
    desk::HostOptions options;
    options.nodeLibrary = TEST_NODE_LIBRARY;
    options.systemLibraryDir = TEST_SYSTEM_LIBRARIES;
    options.dumpDir = dumpDir;
    options.log = nullptr;
    return options;
}

std::string NullText() {
    char text[16];
    static_cast<void>(std::snprintf(text, sizeof(text), "%p", nullptr));
    return text;
}

NodeFixture::NodeFixture(desk::LibraryProvider* libraries) : host_(OptionsFor(dumpDir_)) {
    host_.libraries.SetProvider(libraries);
    host_.SetLogLevels(AllLevels, false);
    host_.log.SetObserver([this](const desk::LogRecord& record) {
        const std::lock_guard<std::mutex> lock(mutex_);
        log_.push_back(fmt::format("{} {}() {}", record.levelLetter, record.function, record.text));
    });
}

void NodeFixture::TearDown() {
    host_.fault = nullptr;
    if (!expectFindings_) {
        host_.CheckTornDown();
        EXPECT_THAT(host_.contract.List(), ::testing::IsEmpty());
    }
    host_.log.SetObserver(nullptr);
}

std::vector<std::string> NodeFixture::TakeLog(char level) {
    const std::lock_guard<std::mutex> lock(mutex_);
    std::vector<std::string> lines = std::exchange(log_, {});
    const auto isOther = [level](const auto& line) { return level != '\0' && line[0] != level; };
    lines.erase(std::remove_if(lines.begin(), lines.end(), isOther), lines.end());
    return lines;
}

std::vector<std::string> NodeFixture::DumpLines(const std::string& kind) const {
    std::vector<std::string> lines;
    for (const auto& entry : std::filesystem::directory_iterator(dumpDir_)) {
        if (entry.path().filename().string().find("_" + kind + "_") != std::string::npos) {
            std::ifstream file(entry.path());
            for (std::string line; std::getline(file, line);) {
                lines.push_back(line);
            }
        }
    }
    return lines;
}

void NodeFixture::FailService(const std::string& service) {
    host_.fault = [service](const desk::HostCall& call, uint32_t& result) {
        result = 4;
        return call.service == service;
    };
}
