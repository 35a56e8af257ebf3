#pragma once

#include <fmt/args.h>
#include <fmt/format.h>

#include <fstream>

#include "tests/node/fakegl/fake_gl_fixture.h"

/// A test that notes what it sees. At its end that has to be what established.txt holds under the test's
/// name, line by line.
class EstablishedFixture : public FakeGlFixture {
protected:
    EstablishedFixture() {
        Name("null", NullText());
        Name("blank", " ");
    }

    template <typename... Values>
    void Note(fmt::format_string<Values...> format, Values&&... values) {
        seen_ += fmt::format(format, std::forward<Values>(values)...) + "\n";
    }
    void NoteLines(std::string_view title, const std::vector<std::string>& lines) {
        Note("{}:{}{}", title, lines.empty() ? " nothing" : "\n    ", fmt::join(lines, "\n    "));
    }
    /// The GL calls since the last time.
    void NoteCalls(std::string_view title) {
        NoteLines(title, gl_->Take());
    }
    /// The lines logged since the last time, or those of them that hold `part`.
    void NoteLog(std::string_view title, std::string_view part = "") {
        std::vector<std::string> lines;
        for (const std::string& line : TakeLog()) {
            if (line.find(part) != std::string::npos) {
                lines.push_back(line);
            }
        }
        NoteLines(title, lines);
    }
    /// What differs from run to run; the file has it as {name}.
    template <typename Value>
    void Name(const char* name, const Value& value) {
        names_.push_back(fmt::arg(name, value));
    }

private:
    std::string Established() const {
        const ::testing::TestInfo& test = *::testing::UnitTest::GetInstance()->current_test_info();
        const std::string head = fmt::format("[{}.{}]", test.test_suite_name(), test.name());
        std::ifstream file(TEST_ESTABLISHED);
        EXPECT_TRUE(file.is_open()) << TEST_ESTABLISHED << " cannot be read";
        std::string text;
        bool isThis = false;
        for (std::string line; std::getline(file, line);) {
            const bool isHead = line.rfind('[', 0) == 0;
            isThis = isHead ? line == head : isThis;
            text += (isThis && !isHead && !line.empty()) ? line + "\n" : "";
        }
        return fmt::vformat(text, names_);
    }
    void TearDown() override {
        EXPECT_EQ(Established(), seen_);
        FakeGlFixture::TearDown();
    }

    std::string seen_;
    fmt::dynamic_format_arg_store<fmt::format_context> names_;
};
