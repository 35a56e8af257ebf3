#pragma once

#include <filesystem>

#include "desk/tool/report/results.h"

namespace desk {

/// Throws UsageError when the folder holds a report that may not be overwritten.
void RequireReportFree(const std::filesystem::path& folder, bool overwrite);

/// Writes the results as a page that needs no other file, report.html, as report.json, and the picture before
/// and after, before_after.jpg, into the folder, which is made when it does not exist. Throws UsageError as
/// RequireReportFree; std::runtime_error.
void WriteReport(const RunResults& results, const std::filesystem::path& folder, bool overwrite);

}  // namespace desk
