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

// The columns of one layout: how many elements stand in each, and how wide names and values are there.
struct Columns {
  size_t lines = 0;
  std::vector<size_t> names;
  std::vector<size_t> values;
  size_t Width() const {
    size_t width = names.empty() ? 0 : 3 * (names.size() - 1);
    for (size_t i = 0; i < names.size(); ++i) width += names[i] + 1 + values[i];
    return width;
  }
};

Columns InLines(const std::vector<const ReportItem*>& elements, size_t lines) {
  Columns columns;
  columns.lines = lines;
  for (size_t i = 0; i < elements.size(); ++i) {
    if (i % lines == 0) {
      columns.names.push_back(0);
      columns.values.push_back(0);
    }
    columns.names.back() = std::max(columns.names.back(), elements[i]->label.size());
    columns.values.back() = std::max(columns.values.back(), elements[i]->text.size());
  }
  return columns;
}

// As few lines as fit, each column as wide as it must be.
Columns Fitting(const std::vector<const ReportItem*>& elements, size_t width) {
  constexpr size_t kMostColumns = 32;
  for (size_t count = std::min(elements.size(), kMostColumns); count > 1; --count) {
    Columns columns = InLines(elements, (elements.size() + count - 1) / count);
    if (columns.Width() <= width) return columns;
  }
  return InLines(elements, std::max<size_t>(elements.size(), 1));
}

// Short elements without a note stand in columns, read downwards.
void AppendColumns(std::string& out, const std::vector<const ReportItem*>& elements, const Style& style,
                   size_t width, size_t indent) {
  if (elements.empty()) return;
  const Columns columns = Fitting(elements, width > indent ? width - indent : 0);
  for (size_t line = 0; line < columns.lines; ++line) {
    out.append(indent, ' ');
    for (size_t i = line, column = 0; i < elements.size(); i += columns.lines, ++column) {
      if (column != 0) out += "   ";
      out += style.Name(PadRight(elements[i]->label, columns.names[column])) + " " +
             PadLeft(elements[i]->text, columns.values[column]);
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
  AppendColumns(out, inColumns, style, width, indent);
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

bool IsShown(const ReportItem& item, const ReportView& view) {
  // What has no label is for programs.
  if (item.kind == Kind::kFact && item.label.empty()) return false;
  switch (item.part) {
    case ReportPart::kSummary:
      return true;
    case ReportPart::kElements:
      return view.elements;
    case ReportPart::kUnits:
      return view.units;
    case ReportPart::kLibrary:
      return view.library;
    case ReportPart::kDetails:
      break;
  }
  return view.details;
}

using Items = std::vector<const ReportItem*>;

Items ShownOf(const std::vector<ReportItem>& items, const ReportView& view) {
  Items shown;
  for (const ReportItem& item : items) {
    if (IsShown(item, view)) shown.push_back(&item);
  }
  return shown;
}

bool HasValueColumn(const ReportItem& item) { return item.kind == Kind::kFact || item.kind == Kind::kLine; }

// The labels of lines that stand together over several sections take one width, so that their texts align.
size_t LineLabelWidth(const std::vector<ReportItem>& items) {
  size_t width = 0;
  for (const ReportItem& item : items) {
    if (item.kind == Kind::kLine) width = std::max(width, ColumnsOf(item.label));
    if (item.kind == Kind::kSection) width = std::max(width, LineLabelWidth(item.children));
  }
  return width;
}

// Neighbouring facts share one column for their values. Returns the place behind the last of them.
size_t AppendFacts(std::string& out, const Items& items, size_t first, const Style& style,
                   const ReportView& view, size_t indent) {
  size_t width = 0;
  size_t last = first;
  for (; last < items.size() && HasValueColumn(*items[last]); ++last)
    width = std::max(width, ColumnsOf(items[last]->label));
  for (size_t n = first; n < last; ++n) {
    const ReportItem& fact = *items[n];
    const bool line = fact.kind == Kind::kLine;
    if (line) width = std::max(width, view.labelWidth);
    const size_t column = indent + width + 2;
    out += std::string(indent, ' ') + style.Name(PadRight(fact.label, width)) + "  " +
           (line ? WrapText(fact.text, view.lineWidth, column) : fact.text);
    if (!fact.note.empty()) out += "  " + style.Warning("(" + fact.note + ")");
    out += '\n';
  }
  return last;
}

void AppendItems(std::string& out, const Items& items, const Style& style, const ReportView& view,
                 size_t indent) {
  const std::string margin(indent, ' ');
  for (size_t n = 0; n < items.size();) {
    const ReportItem& item = *items[n];
    if (HasValueColumn(item)) {
      n = AppendFacts(out, items, n, style, view, indent);
      continue;
    }
    ++n;
    if (item.kind == Kind::kNote) {
      const bool broken = item.part == ReportPart::kSummary;
      const std::string text = "note: " + item.text;
      out += margin + style.Warning(broken ? WrapText(text, view.lineWidth, indent) : text) + "\n";
      continue;
    }
    if (item.kind == Kind::kSection) {
      if (indent == 0 && !out.empty()) out += '\n';
      out += margin + style.Heading(item.label) + "\n";
      ReportView inner = view;
      // What is in the summary belongs to it.
      inner.details = view.details || item.part == ReportPart::kSummary;
      if (item.part == ReportPart::kSummary) inner.labelWidth = LineLabelWidth(item.children);
      AppendItems(out, ShownOf(item.children, inner), style, inner, indent + 2);
      continue;
    }
    if (!item.label.empty()) out += margin + style.Heading(item.label) + "\n";
    const size_t inner = indent + (item.label.empty() ? 0 : 2);
    if (item.kind == Kind::kTable) AppendTable(out, item, style, inner);
    if (item.kind == Kind::kElements) AppendElements(out, item.children, style, view.width, inner);
  }
}

}  // namespace

std::string ReportText(const ReportItem& report, const Style& style, const ReportView& view) {
  std::string out;
  if (!report.label.empty()) out += style.Heading(report.label) + "\n";
  AppendItems(out, ShownOf(report.children, view), style, view, report.label.empty() ? 0 : 2);
  return out;
}

std::string ReportText(const ReportItem& report, const Style& style, size_t width) {
  ReportView view;
  view.width = width;
  return ReportText(report, style, view);
}

void PrintReport(const Report& report, bool asJson) {
  Print(asJson ? report.ToJson() + "\n"
               : ReportText(report.root(), Style::ForStream(stdout), OutputWidth(stdout)));
}

}  // namespace qlnmedia
