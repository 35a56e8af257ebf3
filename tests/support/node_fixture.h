#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <mutex>
#include <string>
#include <vector>

#include "desk/host/desk_host.h"
#include "desk/host/desk_node.h"
#include "desk/warp/grid_size.h"
#include "tests/support/folder.h"

/// A silent host of the built library over the desk's own GL, dumps in a folder that the caller keeps.
desk::HostOptions OptionsFor(const std::filesystem::path& dumpDir);

/// A null pointer as the C library prints it: "(nil)", or "0x0" on Android.
std::string NullText();

/// A host with the built library, as every test that drives the library through its one export needs it:
/// log lines collected, dumps in a folder of the test's own, no broken rule at the end.
class NodeFixture : public ::testing::Test {
protected:
    /// Null for the desk's own GL libraries.
    explicit NodeFixture(desk::LibraryProvider* libraries);
    void TearDown() override;

    /// The lines logged since the last time, as "E Initialize() text"; of one level or of all.
    std::vector<std::string> TakeLog(char level = '\0');
    /// The lines of one dump file of the last folder, which the kind ("Grid", "Tex", "Vert") selects.
    std::vector<std::string> DumpLines(const std::string& kind) const;
    /// Makes every call of a service fail with the result 4.
    void FailService(const std::string& service);
    /// A grid of `value(column, row)` in every point.
    template <typename Function>
    static IPEICAGridTransform Grid(Function value) {
        IPEICAGridTransform grid = {};
        grid.gridTransformEnable = 1;
        for (int row = 0; row < desk::GridRows; ++row) {
            for (int column = 0; column < desk::GridColumns; ++column) {
                grid.gridTransformArray[row * desk::GridColumns + column] = value(column, row);
            }
        }
        return grid;
    }

    static constexpr uint32_t AllLevels = 1 | 2 | 8 | 32;

    const TemporaryFolder folder_;
    const std::filesystem::path& dumpDir_ = folder_.path;
    desk::DeskHost host_;
    /// Set by tests that provoke losses or breaches on purpose.
    bool expectFindings_ = false;

private:
    std::mutex mutex_;
    std::vector<std::string> log_;
};
