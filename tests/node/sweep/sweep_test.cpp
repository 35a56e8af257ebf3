#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "tests/node/sweep/course.h"

// Every call around the library that can fail is made to fail, each once and from there on, in a process of
// its own: a node is created, negotiates, renders four frames and is destroyed beside a neighbour that has to
// notice nothing. What comes of it is kept in outcomes.txt. To make that anew, and to read it before it is
// committed: rm outcomes.txt; DEWARP_SWEEP_KEEP=1 sweep_tests

// The platform's log, as the library reaches it in this process.
extern "C" int __android_log_print(int, const char*, const char*, ...) {
    return 0;
}

/// What outcomes.txt keeps: every line that outcomes are made of, under a number, and of every point the
/// numbers of its lines. A variant that differs there has a row of its own.
class Outcomes {
public:
    Outcomes() {
        std::ifstream file(TEST_SWEEP_OUTCOMES);
        std::vector<std::string> lines;
        for (std::string row; std::getline(file, row);) {
            const size_t colon = row.find(": ");
            if (row[0] >= '0' && row[0] <= '9') {
                lines.push_back(row.substr(colon + 2));
                continue;
            }
            std::istringstream numbers(row.substr(colon + 2));
            for (size_t number = 0; numbers >> number;) {
                rows_[row.substr(0, colon)] += lines.at(number) + "\n";
            }
        }
    }
    std::string Of(const std::string& variant, const std::string& point) const {
        const auto own = rows_.find(variant + ", " + point);
        const auto row = own != rows_.end() ? own : rows_.find(point);
        return row != rows_.end() ? row->second : "";
    }
    void Keep(const std::string& variant, const std::string& point, const std::string& text) {
        if (Of(variant, point) != text) {
            rows_[rows_.count(point) == 0 ? point : variant + ", " + point] = text;
        }
    }
    void Write() const {
        std::ofstream file(TEST_SWEEP_OUTCOMES);
        std::map<std::string, size_t> numbers;
        std::string rows;
        for (const auto& [point, text] : rows_) {
            rows += point + ":";
            std::istringstream lines(text);
            for (std::string line; std::getline(lines, line);) {
                const auto [entry, isNew] = numbers.try_emplace(line, numbers.size());
                rows += fmt::format(" {}", entry->second);
                file << (isNew ? fmt::format("{}: {}\n", entry->second, line) : "");
            }
            rows += "\n";
        }
        file << rows;
    }

private:
    std::map<std::string, std::string> rows_;
};

class Sweep : public Course, public ::testing::WithParamInterface<desk::Variant> {
protected:
    Sweep() : Course(GetParam()) {}

    /// Runs a point in a child process, from this one's state. Returns what it reports; a child that died or
    /// hung reports that.
    std::string RunApart(const Point& point) {
        if (std::getenv("DEWARP_SWEEP_TOGETHER") != nullptr) {  // for what only counts at a regular end
            expectFindings_ = true;
            return Run(point);
        }
        const std::filesystem::path report = dumpDir_ / "report";
        const pid_t child = ::fork();
        if (child == 0) {
            ::alarm(60);
            std::ofstream file(report);
            [&]() noexcept { file << Run(point) << std::flush; }();  // an exception ends it as a crash does
            ::_exit(file ? 0 : 1);  // what is lost stays lost; nothing else is torn down
        }
        int status = 0;
        ::waitpid(child, &status, 0);
        std::stringstream text;
        text << std::ifstream(report).rdbuf();
        return status == 0 ? text.str()
                           : text.str() + fmt::format("the process ended with status {:#x}\n", status);
    }
    /// Runs a point and compares, or keeps, what comes of it.
    std::string Check(const Point& point) {
        const char* variant = desk::NameOf(GetParam());
        std::string outcome = RunApart(point);
        if (isKept_) {
            outcomes_.Keep(variant, point.Name(), outcome);
        }
        EXPECT_EQ(outcome, outcomes_.Of(variant, point.Name())) << point.Name();
        return outcome;
    }

    const bool isKept_ = std::getenv("DEWARP_SWEEP_KEEP") != nullptr;
    Outcomes outcomes_;
};

TEST_P(Sweep, EveryFaultEndsAsEstablished) {
    std::istringstream counts(Check({}));
    std::string name;
    for (unsigned count = 0; counts >> count >> std::ws && std::getline(counts, name);) {
        for (unsigned first = 1; first <= count; first += TEST_SWEEP_STRIDE) {
            Check({name, first, false});
            Check({name, first, true});
        }
    }
    if (isKept_) {
        outcomes_.Write();
    }
}

INSTANTIATE_TEST_SUITE_P(Variants, Sweep, ::testing::ValuesIn(Variants), [](const auto& row) {
    return row.param == desk::Variant::RealTime ? "RealTime" : "LookAhead";
});
