// Rows of comma separated values (RFC 4180), and JSON on one line.
#ifndef TOOLS_QLNMEDIA_TABLES_H
#define TOOLS_QLNMEDIA_TABLES_H

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "exit_status.h"
#include "inputs.h"

namespace qlnmedia {

using Json = nlohmann::ordered_json;

// One row with its line ending (CR LF). Cells that hold commas, quotes or line ends stand in quotes.
std::string CsvRow(const std::vector<std::string>& cells);

// A value as a cell: texts as they are, true and false as such, nothing for null, and arrays of values with
// blanks between them.
std::string CsvCell(const Json& value);

// JSON on one line, with a line end behind it; bytes that are no UTF-8 come as U+FFFD.
std::string JsonLine(const Json& value);

// What stands in front of a file's own members in a line of JSON: "file" and "status".
Json LineHead(const Input& input, ExitStatus status);
// The line for a file that failed, with the member "error".
std::string FailedLine(const Input& input, ExitStatus status, const std::string& error);

}  // namespace qlnmedia

#endif
