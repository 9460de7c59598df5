// A report as one HTML file that stands for itself: no network, light and dark, for any width and for print.
#pragma once

#include <filesystem>
#include <ostream>

#include "change_report.h"

namespace krxpatch {

/** Of a database with very many changes the first ones are shown; the JSON form has all of them. */
void PrintHtml(std::ostream& out, const ChangeReport& report);

/** Whether a file is one of these. */
[[nodiscard]] bool IsHtmlReport(const std::filesystem::path& file);

} // namespace krxpatch
