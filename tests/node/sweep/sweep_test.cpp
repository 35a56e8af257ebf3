#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "tests/node/sweep/course.h"

// Every call around the library that can fail is made to fail, each once and from there on, in a process of
// its own: a node is created, negotiates, renders four frames and is destroyed beside a neighbour that has to
// notice nothing. What comes of it is kept in outcomes.txt.

// The platform's log, as the library reaches it in this process.
extern "C" int __android_log_print(int, const char*, const char*, ...) {
    return 0;
}

/// The kept outcomes. outcomes.txt has every line that they are made of under a number, and of every point
/// the numbers of its lines; a variant that differs there has a row of its own.
class Outcomes {
public:
    Outcomes() {
        std::ifstream file(TEST_SWEEP_OUTCOMES);
        for (std::string line; std::getline(file, line);) {
            const size_t colon = line.find(": ");
            if (line[0] >= '0' && line[0] <= '9') {
                lines_[std::stoul(line)] = line.substr(colon + 2);
            } else if (line[0] != '#') {
                rows_[line.substr(0, colon)] = line.substr(colon + 2);
            }
        }
    }
    std::string Of(const std::string& variant, const std::string& point) const {
        const auto own = rows_.find(variant + ", " + point);
        const auto row = own != rows_.end() ? own : rows_.find(point);
        std::istringstream numbers(row != rows_.end() ? row->second : "");
        std::string text;
        for (size_t number = 0; numbers >> number;) {
            text += lines_.at(number) + "\n";
        }
        return text;
    }
    void Keep(const std::string& variant, const std::string& point, const std::string& text) {
        if (Of(variant, point) == text) {
            return;
        }
        std::string numbers;
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);) {
            numbers += fmt::format(" {}", NumberOf(line));
        }
        rows_[rows_.count(point) == 0 ? point : variant + ", " + point] = numbers.substr(1);
    }
    void Write() const {
        std::ofstream file(TEST_SWEEP_OUTCOMES);
        file << "# What comes of each fault (sweep_test.cpp): first the lines, then those that each point "
                "has. Made anew,\n"
                "# to be read before it is committed, by: rm outcomes.txt; DEWARP_SWEEP_KEEP=1 sweep_tests\n";
        for (const auto& [number, line] : lines_) {
            file << number << ": " << line << "\n";
        }
        for (const auto& [point, numbers] : rows_) {
            file << point << ": " << numbers << "\n";
        }
    }

private:
    size_t NumberOf(const std::string& wanted) {
        for (const auto& [number, line] : lines_) {
            if (line == wanted) {
                return number;
            }
        }
        lines_[lines_.size()] = wanted;
        return lines_.size() - 1;
    }

    std::map<size_t, std::string> lines_;
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
        std::filesystem::remove(report);
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
        const std::string outcome = RunApart(point);
        ++points_;
        if (std::getenv("DEWARP_SWEEP_KEEP") != nullptr) {
            outcomes_.Keep(variant, point.Name(), outcome);
        } else if (outcome != outcomes_.Of(variant, point.Name()) && ++wrong_ <= 20) {
            EXPECT_EQ(outcome, outcomes_.Of(variant, point.Name())) << point.Name();
        }
        return outcome;
    }

    Outcomes outcomes_;
    unsigned points_ = 0;
    unsigned wrong_ = 0;
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
    EXPECT_EQ(wrong_, 0U) << "of " << points_ << " points";
    EXPECT_GT(points_, 1U);
    RecordProperty("points", static_cast<int>(points_));
    if (std::getenv("DEWARP_SWEEP_KEEP") != nullptr) {
        outcomes_.Write();
    }
}

INSTANTIATE_TEST_SUITE_P(Variants, Sweep, ::testing::ValuesIn(Variants), [](const auto& row) {
    return row.param == desk::Variant::RealTime ? "RealTime" : "LookAhead";
});
