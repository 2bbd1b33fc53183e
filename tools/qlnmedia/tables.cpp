// Writes rows and lines for other programs.

#include "tables.h"

namespace qlnmedia {

std::string CsvRow(const std::vector<std::string>& cells) {
  std::string row;
  for (size_t i = 0; i < cells.size(); ++i) {
    if (i != 0) row += ',';
    const std::string& cell = cells[i];
    if (cell.find_first_of(",\"\r\n") == std::string::npos) {
      row += cell;
      continue;
    }
    row += '"';
    for (const char c : cell) {
      row += c;
      if (c == '"') row += c;
    }
    row += '"';
  }
  return row + "\r\n";
}

std::string CsvCell(const Json& value) {
  if (value.is_null()) return {};
  if (value.is_string()) return value.get<std::string>();
  if (!value.is_array()) return value.dump();
  std::string cell;
  for (const Json& item : value) cell += (cell.empty() ? "" : " ") + CsvCell(item);
  return cell;
}

std::string JsonLine(const Json& value) {
  return value.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

Json LineHead(const Input& input, ExitStatus status) {
  return Json{{"file", input.path}, {"status", static_cast<int>(status)}};
}

std::string FailedLine(const Input& input, ExitStatus status, const std::string& error) {
  Json line = LineHead(input, status);
  line["error"] = error;
  return JsonLine(line);
}

}  // namespace qlnmedia
