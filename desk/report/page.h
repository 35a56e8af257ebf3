#pragma once

#include <filesystem>

#include "desk/report/results.h"

namespace desk {

/// Makes the folder unless it exists. Throws UsageError when it holds a report that may not be overwritten;
/// std::runtime_error.
void PrepareReport(const std::filesystem::path& folder, bool overwrite);

/// Writes the results as a page that needs no other file, report.html, as report.json, and the picture before
/// and after, before_after.jpg, into the folder, which was prepared. Throws std::runtime_error.
void WriteReport(const RunResults& results, const std::filesystem::path& folder, bool overwrite);

}  // namespace desk
