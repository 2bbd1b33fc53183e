// Walks a report and leaves aside what the page draws.

#include "html/report_json.h"

namespace qlnmedia::html {

namespace {

bool IsShown(const ReportItem& item) {
  if (item.part != ReportPart::kDetails && item.part != ReportPart::kSummary) return false;
  return item.key != "frames" && item.key != "parameter_sets";
}

Json RowsOf(const ReportItem& table) {
  Json rows = Json::array();
  for (const ReportItem& row : table.children) {
    Json cells = Json::array();
    for (size_t i = 0; i < row.children.size(); ++i) {
      if (i < table.columns.size() && !table.columns[i].label.empty()) cells.push_back(row.children[i].text);
    }
    rows.push_back(std::move(cells));
  }
  return rows;
}

Json TableJson(const ReportItem& table) {
  Json columns = Json::array();
  for (const ReportColumn& column : table.columns) {
    if (!column.label.empty()) columns.push_back({column.label, column.right});
  }
  return Json{
      {"kind", "table"}, {"label", table.label}, {"columns", std::move(columns)}, {"rows", RowsOf(table)}};
}

Json ItemJson(const ReportItem& item) {
  switch (item.kind) {
    case ReportItem::Kind::kTable:
      return TableJson(item);
    case ReportItem::Kind::kNote:
      return Json{{"kind", "note"}, {"text", item.text}};
    case ReportItem::Kind::kFact:
    case ReportItem::Kind::kElement:
    case ReportItem::Kind::kLine:
      return Json{{"kind", "fact"}, {"label", item.label}, {"text", item.text}, {"note", item.note}};
    default:
      break;
  }
  Json section{{"kind", "section"}, {"key", item.key}, {"label", item.label}, {"items", ReportJson(item)}};
  // Who goes through the streams knows them by their kind.
  for (const ReportItem& fact : item.children) {
    if (item.key == "streams" && fact.key == "type") section["type"] = fact.text;
  }
  return section;
}

}  // namespace

Json ReportJson(const ReportItem& root) {
  Json items = Json::array();
  for (const ReportItem& item : root.children) {
    // What has no label is for programs.
    const bool plain = item.kind == ReportItem::Kind::kFact && item.label.empty();
    if (IsShown(item) && !plain) items.push_back(ItemJson(item));
  }
  return items;
}

}  // namespace qlnmedia::html
