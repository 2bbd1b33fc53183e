// Lays summaries out in columns.

#include "summary_rows.h"

#include <fmt/format.h>

#include <iterator>

namespace qlnmedia {

namespace {

// In front of these stand file, status and format.
constexpr const char* kOfStream[] = {"stream",
                                     "type",
                                     "codec",
                                     "profile",
                                     "level",
                                     "tier",
                                     "width",
                                     "height",
                                     "sample_aspect_ratio",
                                     "display_aspect_ratio",
                                     "chroma_format",
                                     "bit_depth",
                                     "scan",
                                     "scan_coding",
                                     "field_order",
                                     "frame_rate",
                                     "frame_rate_mode",
                                     "colour_primaries",
                                     "transfer_characteristics",
                                     "matrix_coefficients",
                                     "range",
                                     "hdr",
                                     "timecode",
                                     "captions",
                                     "sample_rate",
                                     "channels",
                                     "channel_layout",
                                     "sample_bits",
                                     "bit_rate",
                                     "duration",
                                     "id",
                                     "programs",
                                     "language",
                                     "dispositions",
                                     "encrypted"};

std::string Ratio(const Json& value, const char* first, const char* second, const char* between) {
  if (value.is_null()) return {};
  return fmt::format("{}{}{}", value[first].dump(), between, value[second].dump());
}

// "HDR10, HDR10+, Dolby Vision 8.1"
std::string HdrCell(const Json& hdr) {
  if (hdr.is_null()) return {};
  std::string cell = CsvCell(hdr["kind"]);
  const auto add = [&cell](const std::string& piece) { cell += (cell.empty() ? "" : ", ") + piece; };
  if (hdr["hdr10_plus"].get<bool>()) add("HDR10+");
  if (!hdr["dolby_vision"].is_null()) {
    const std::string profile = CsvCell(hdr["dolby_vision"]["profile"]);
    add(profile.empty() ? "Dolby Vision" : "Dolby Vision " + profile);
  }
  return cell;
}

std::string Cell(const Json& stream, const std::string& key) {
  const std::string name = key == "stream" ? "index" : key;
  if (!stream.contains(name)) return {};
  const Json& value = stream[name];
  if (key.ends_with("aspect_ratio")) return Ratio(value, "width", "height", ":");
  if (key == "frame_rate") return Ratio(value, "numerator", "denominator", "/");
  if (key == "hdr") return HdrCell(value);
  if (key == "timecode") return value.empty() ? std::string() : CsvCell(value[0]["value"]);
  return CsvCell(value);
}

}  // namespace

std::string SummaryHeading() {
  std::vector<std::string> names = {"file", "status", "format"};
  names.insert(names.end(), std::begin(kOfStream), std::end(kOfStream));
  names.insert(names.end(), {"findings", "error"});
  return CsvRow(names);
}

std::string SummaryRows(const Json& summary, const Input& input) {
  std::string rows;
  for (const Json& stream : summary.value("streams", Json::array())) {
    std::vector<std::string> cells = {input.path, std::to_string(kExitSuccess), CsvCell(summary["format"])};
    for (const char* const key : kOfStream) cells.push_back(Cell(stream, key));
    size_t findings = 0;
    const bool checked = !summary["check"].is_null() && stream["type"] == "video";
    if (checked) {
      for (const Json& finding : summary["check"]["findings"])
        findings += finding["stream"] == stream["index"] ? 1 : 0;
    }
    cells.push_back(checked ? std::to_string(findings) : "");
    cells.emplace_back();
    rows += CsvRow(cells);
  }
  return rows;
}

std::string FailedSummaryRow(const Input& input, ExitStatus status, const std::string& error) {
  std::vector<std::string> cells = {input.path, std::to_string(status), ""};
  cells.resize(cells.size() + std::size(kOfStream) + 1);
  cells.push_back(error);
  return CsvRow(cells);
}

}  // namespace qlnmedia
