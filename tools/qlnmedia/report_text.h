// A report as people read it.
#ifndef TOOLS_QLNMEDIA_REPORT_TEXT_H
#define TOOLS_QLNMEDIA_REPORT_TEXT_H

#include <cstddef>
#include <string>

#include "output.h"
#include "qlnmedia/inspect.h"

namespace qlnmedia {

// Which parts of a report are shown, and how wide.
struct ReportView {
  size_t width = 100;     // columns of tables of elements
  size_t lineWidth = 80;  // at which the lines of a summary are broken
  bool details = true;
  bool elements = true;
  bool units = true;
  bool library = true;
  size_t labelWidth = 0;  // of the lines of a summary; found while it is shown
};
std::string ReportText(const ReportItem& report, const Style& style, const ReportView& view);

// The text of all of a report for a terminal of `width` columns.
std::string ReportText(const ReportItem& report, const Style& style, size_t width);

// Prints a report in the form that the options ask for.
void PrintReport(const Report& report, bool json);

}  // namespace qlnmedia

#endif
