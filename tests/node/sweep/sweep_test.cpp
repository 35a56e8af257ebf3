#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "tests/node/sweep/course.h"

// Every call around the library that can fail is made to fail, each once and from there on, in a process of
// its own: a node is created, negotiates, renders four frames and is destroyed beside a neighbour that has to
// notice nothing. What has to come of it is told by Prediction.

// The platform's log, as the library reaches it in this process.
extern "C" int __android_log_print(int, const char*, const char*, ...) {
    return 0;
}

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
                           : text.str() + fmt::format("  the process ended with status {:#x}\n", status);
    }
    struct Outcome {
        std::string problems;
        Counts lost;
        Counts called;
    };
    Outcome OutcomeOf(const Point& point) {
        std::istringstream lines(RunApart(point));
        Outcome outcome;
        for (std::string line; std::getline(lines, line);) {
            std::istringstream words(line);
            std::string head;
            std::string what;
            unsigned count = 0;
            if (words >> head >> count >> std::ws && std::getline(words, what) &&
                (head == "lost:" || head == "called:")) {
                (head == "lost:" ? outcome.lost : outcome.called)[what] = count;
            } else {
                outcome.problems += line + "\n";
            }
        }
        return outcome;
    }
    /// How often each class of calls occurs when nothing fails.
    Counts Golden() {
        const Outcome outcome = OutcomeOf({"", 0, false});
        EXPECT_EQ(outcome.problems, "") << "the course fails although nothing was made to";
        return outcome.called;
    }
    /// As the lines about the variant in counts.txt that `after` follows are written.
    static std::string Text(const char* after, const Counts& counts) {
        std::string text;
        for (const auto& [what, count] : counts) {
            text += fmt::format("{}{}{} {}\n", desk::NameOf(GetParam()), after, count, what);
        }
        return text;
    }
    /// Those lines.
    static std::string Kept(const char* after) {
        std::ifstream file(TEST_SWEEP_COUNTS);
        std::string lines;
        for (std::string line; std::getline(file, line);) {
            lines += line.rfind(desk::NameOf(GetParam()) + std::string(after), 0) == 0 ? line + "\n" : "";
        }
        return lines;
    }
};

TEST_P(Sweep, CountsAreKept) {
    EXPECT_EQ(Text(": ", Golden()), Kept(": ")) << "another number of calls can fail than kept";
}

TEST_P(Sweep, EveryFaultEndsAsEstablished) {
    Counts losses;
    unsigned points = 0;
    unsigned wrong = 0;
    for (const auto& [name, count] : Golden()) {
        for (unsigned first = 1; first <= count; first += TEST_SWEEP_STRIDE) {
            for (const bool isLasting : {false, true}) {
                ++points;
                const Point point = {name, first, isLasting};
                const Outcome outcome = OutcomeOf(point);
                if (!outcome.problems.empty() && ++wrong <= 20) {
                    ADD_FAILURE() << Name(point) << ":\n" << outcome.problems;
                }
                for (const auto& [what, lost] : outcome.lost) {
                    losses[what] = std::max(losses[what], lost);
                }
            }
        }
    }
    EXPECT_EQ(wrong, 0U) << "of " << points << " points";
    RecordProperty("points", static_cast<int>(points));
    if (TEST_SWEEP_STRIDE == 1) {
        EXPECT_EQ(Text(", lost at most: ", losses), Kept(", lost at most: "))
            << "more or less stays behind than kept";
    }
}

INSTANTIATE_TEST_SUITE_P(Variants, Sweep, ::testing::ValuesIn(Variants), [](const auto& row) {
    return row.param == desk::Variant::RealTime ? "RealTime" : "LookAhead";
});
