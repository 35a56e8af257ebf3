#pragma once

#include <array>
#include <filesystem>

#include "desk/report/results.h"

namespace desk {

/// What a report's folder holds.
constexpr std::array<const char*, 3> ReportFiles = {"report.html", "report.json", "before_after.jpg"};

/// Makes the folder unless it exists. Throws UsageError when it holds a report that may not be overwritten;
/// std::runtime_error.
void PrepareReport(const std::filesystem::path& folder, bool overwrite);

/// Writes the results as a page that needs no other file, as JSON, and the picture before and after, into
/// the folder, which was prepared. Throws std::runtime_error.
void WriteReport(const RunResults& results, const std::filesystem::path& folder, bool overwrite);

}  // namespace desk
