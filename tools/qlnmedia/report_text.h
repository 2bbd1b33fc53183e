// A report as people read it.
#ifndef TOOLS_QLNMEDIA_REPORT_TEXT_H
#define TOOLS_QLNMEDIA_REPORT_TEXT_H

#include <cstddef>
#include <string>

#include "output.h"
#include "qlnmedia/inspect.h"

namespace qlnmedia {

// The text of a report for a terminal of `width` columns.
std::string ReportText(const ReportItem& report, const Style& style, size_t width);

// Prints a report in the form that the options ask for.
void PrintReport(const Report& report, bool json);

}  // namespace qlnmedia

#endif
