// The summary of a file as comma separated values.
#ifndef TOOLS_QLNMEDIA_SUMMARY_ROWS_H
#define TOOLS_QLNMEDIA_SUMMARY_ROWS_H

#include <string>

#include "tables.h"

namespace qlnmedia {

// The names of the columns, as a row.
std::string SummaryHeading();

// A row for each stream of a summary in its JSON form, with what is said of the file in each.
std::string SummaryRows(const Json& summary, const Input& input);

// The row of a file that failed.
std::string FailedSummaryRow(const Input& input, ExitStatus status, const std::string& error);

}  // namespace qlnmedia

#endif
