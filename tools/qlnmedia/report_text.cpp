// Prints reports: facts in columns, elements in as many columns as fit, tables.

#include "report_text.h"

#include <algorithm>
#include <cstdio>
#include <string_view>
#include <vector>

namespace qlnmedia {

namespace {

using Kind = ReportItem::Kind;

// Long arrays are broken into lines of this many values, as scaling lists stand in the standards.
constexpr size_t kValuesPerLine = 16;

bool IsArray(const ReportItem& element) { return element.value.starts_with('['); }

// The values of an array as they are read, which stand between blanks.
std::vector<std::string_view> ValuesOf(std::string_view text) {
  std::vector<std::string_view> values;
  for (size_t at = 0; at <= text.size();) {
    const size_t end = std::min(text.find(' ', at), text.size());
    values.push_back(text.substr(at, end - at));
    at = end + 1;
  }
  return values;
}

// Short elements without a note stand in columns, read downwards.
void AppendColumns(std::string& out, const std::vector<const ReportItem*>& elements, const Style& style,
                   size_t nameWidth, size_t width, size_t indent) {
  size_t valueWidth = 0;
  for (const ReportItem* element : elements) valueWidth = std::max(valueWidth, element->text.size());
  const size_t cell = nameWidth + 1 + valueWidth;
  const size_t columns = std::max<size_t>(1, (width > indent ? width - indent + 3 : 0) / (cell + 3));
  const size_t lines = (elements.size() + columns - 1) / columns;
  for (size_t line = 0; line < lines; ++line) {
    out.append(indent, ' ');
    for (size_t i = line; i < elements.size(); i += lines) {
      if (i != line) out += "   ";
      out +=
          style.Name(PadRight(elements[i]->label, nameWidth)) + " " + PadLeft(elements[i]->text, valueWidth);
    }
    out += '\n';
  }
}

void AppendElements(std::string& out, const std::vector<ReportItem>& elements, const Style& style,
                    size_t width, size_t indent) {
  constexpr size_t kShort = 12;
  std::vector<const ReportItem*> inColumns;
  std::vector<const ReportItem*> others;
  size_t nameWidth = 0;
  for (const ReportItem& element : elements) {
    const bool isShort = element.note.empty() && !IsArray(element) && element.text.size() <= kShort;
    (isShort ? inColumns : others).push_back(&element);
    if (isShort) nameWidth = std::max(nameWidth, element.label.size());
  }
  AppendColumns(out, inColumns, style, nameWidth, width, indent);
  for (const ReportItem* element : others) {
    out += std::string(indent, ' ') + style.Name(PadRight(element->label, nameWidth)) + " ";
    const std::vector<std::string_view> values = ValuesOf(element->text);
    if (IsArray(*element) && values.size() > kValuesPerLine) {
      for (size_t i = 0; i < values.size(); ++i) {
        if (i % kValuesPerLine == 0) out += "\n" + std::string(indent + 2, ' ');
        out += PadLeft(values[i], 4);
      }
    } else {
      out += element->text;
    }
    if (!element->note.empty()) out += "  " + style.Warning("(" + element->note + ")");
    out += '\n';
  }
}

void AppendTable(std::string& out, const ReportItem& table, const Style& style, size_t indent) {
  std::vector<std::string> headings;
  std::vector<bool> right;
  for (const ReportColumn& column : table.columns) {
    if (column.label.empty()) continue;
    headings.push_back(column.label);
    right.push_back(column.right);
  }
  std::vector<std::vector<std::string>> rows;
  for (const ReportItem& row : table.children) {
    rows.emplace_back();
    for (const ReportItem& cell : row.children) {
      if (!cell.label.empty()) rows.back().push_back(cell.text);
    }
  }
  out += FormatTable(headings, rows, right, indent, style);
}

// Neighbouring facts share one column for their values. Returns the place behind the last of them.
size_t AppendFacts(std::string& out, const std::vector<ReportItem>& items, size_t first, const Style& style,
                   size_t indent) {
  size_t width = 0;
  size_t last = first;
  for (; last < items.size() && items[last].kind == Kind::kFact; ++last)
    width = std::max(width, ColumnsOf(items[last].label));
  for (size_t n = first; n < last; ++n) {
    const ReportItem& fact = items[n];
    out += std::string(indent, ' ') + style.Name(PadRight(fact.label, width)) + "  " + fact.text;
    if (!fact.note.empty()) out += "  " + style.Warning("(" + fact.note + ")");
    out += '\n';
  }
  return last;
}

void AppendItems(std::string& out, const std::vector<ReportItem>& items, const Style& style, size_t width,
                 size_t indent) {
  const std::string margin(indent, ' ');
  for (size_t n = 0; n < items.size();) {
    const ReportItem& item = items[n];
    if (item.kind == Kind::kFact) {
      n = AppendFacts(out, items, n, style, indent);
      continue;
    }
    ++n;
    if (item.kind == Kind::kNote) {
      out += margin + style.Warning("note: " + item.text) + "\n";
      continue;
    }
    if (item.kind == Kind::kSection) {
      if (indent == 0 && !out.empty()) out += '\n';
      out += margin + style.Heading(item.label) + "\n";
      AppendItems(out, item.children, style, width, indent + 2);
      continue;
    }
    if (!item.label.empty()) out += margin + style.Heading(item.label) + "\n";
    const size_t inner = indent + (item.label.empty() ? 0 : 2);
    if (item.kind == Kind::kTable) AppendTable(out, item, style, inner);
    if (item.kind == Kind::kElements) AppendElements(out, item.children, style, width, inner);
  }
}

}  // namespace

std::string ReportText(const ReportItem& report, const Style& style, size_t width) {
  std::string out;
  if (!report.label.empty()) out += style.Heading(report.label) + "\n";
  AppendItems(out, report.children, style, width, report.label.empty() ? 0 : 2);
  return out;
}

void PrintReport(const Report& report, bool json) {
  Print(json ? report.ToJson() + "\n"
             : ReportText(report.root(), Style::ForStream(stdout), OutputWidth(stdout)));
}

}  // namespace qlnmedia
