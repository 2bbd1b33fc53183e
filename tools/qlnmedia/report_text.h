// A report as people read it.
#ifndef TOOLS_QLNMEDIA_REPORT_TEXT_H
#define TOOLS_QLNMEDIA_REPORT_TEXT_H

#include <cstddef>
#include <string>

#include "base/report.h"
#include "output.h"

namespace qlnmedia {

// The text of a report for a terminal of `width` columns.
std::string ReportText(const Section& report, const Style& style, size_t width);

}  // namespace qlnmedia

#endif
