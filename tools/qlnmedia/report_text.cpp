// Prints reports: facts in columns, elements in as many columns as fit, tables.

#include "report_text.h"

#include <algorithm>

namespace qlnmedia {

namespace {

// Long arrays are broken into lines of this many values, as scaling lists stand in the standards.
constexpr size_t kValuesPerLine = 16;

void AppendElements(std::string& out, const std::vector<Element>& elements, const Style& style, size_t width,
                    size_t indent) {
  // Short elements without a note stand in columns, read downwards; the others follow on lines of their own.
  std::vector<std::string> names;
  std::vector<std::string> values;
  size_t nameWidth = 0;
  size_t valueWidth = 0;
  constexpr size_t kShort = 12;
  std::vector<const Element*> others;
  for (const Element& element : elements) {
    const std::string value = PlainText(element.value);
    if (!element.note.empty() || element.value.is_array() || value.size() > kShort) {
      others.push_back(&element);
      continue;
    }
    names.push_back(element.name);
    values.push_back(value);
    nameWidth = std::max(nameWidth, element.name.size());
    valueWidth = std::max(valueWidth, value.size());
  }
  const size_t cell = nameWidth + 1 + valueWidth;
  const size_t columns = std::max<size_t>(1, (width > indent ? width - indent + 3 : 0) / (cell + 3));
  const size_t lines = (names.size() + columns - 1) / columns;
  for (size_t line = 0; line < lines; ++line) {
    out.append(indent, ' ');
    for (size_t i = line; i < names.size(); i += lines) {
      if (i != line) out += "   ";
      out += style.Name(PadRight(names[i], nameWidth)) + " " + PadLeft(values[i], valueWidth);
    }
    out += '\n';
  }
  for (const Element* element : others) {
    out += std::string(indent, ' ') + style.Name(PadRight(element->name, nameWidth)) + " ";
    if (element->value.is_array() && element->value.size() > kValuesPerLine) {
      for (size_t i = 0; i < element->value.size(); ++i) {
        if (i % kValuesPerLine == 0) out += "\n" + std::string(indent + 2, ' ');
        out += PadLeft(PlainText(element->value[i]), 4);
      }
    } else {
      out += PlainText(element->value);
    }
    if (!element->note.empty()) out += "  " + style.Warning("(" + element->note + ")");
    out += '\n';
  }
}

void AppendSection(std::string& out, const Section& section, const Style& style, size_t width,
                   size_t indent) {
  const auto& nodes = section.nodes();
  const std::string margin(indent, ' ');
  for (size_t n = 0; n < nodes.size(); ++n) {
    const Section::Node& node = *nodes[n];
    switch (node.kind) {
      case Section::Node::Kind::kFact: {
        // Neighbouring facts share one column for their values.
        size_t labelWidth = 0;
        size_t last = n;
        for (; last < nodes.size() && nodes[last]->kind == Section::Node::Kind::kFact; ++last)
          labelWidth = std::max(labelWidth, ColumnsOf(nodes[last]->label));
        for (; n < last; ++n) {
          const Section::Node& fact = *nodes[n];
          out += margin + style.Name(PadRight(fact.label, labelWidth)) + "  " + fact.text;
          if (!fact.note.empty()) out += "  " + style.Warning("(" + fact.note + ")");
          out += '\n';
        }
        --n;
        break;
      }
      case Section::Node::Kind::kSection:
      case Section::Node::Kind::kListItem:
        if (indent == 0 && !out.empty()) out += '\n';
        out += margin + style.Heading(node.section.title()) + "\n";
        AppendSection(out, node.section, style, width, indent + 2);
        break;
      case Section::Node::Kind::kTable: {
        if (!node.label.empty()) out += margin + style.Heading(node.label) + "\n";
        std::vector<std::string> headings;
        std::vector<bool> right;
        for (const Column& column : node.columns) {
          if (column.jsonOnly) continue;
          headings.push_back(column.heading);
          right.push_back(column.right);
        }
        std::vector<std::vector<std::string>> rows;
        for (const auto& row : node.rows) {
          rows.emplace_back();
          for (size_t i = 0; i < row.size() && i < node.columns.size(); ++i) {
            if (node.columns[i].jsonOnly) continue;
            rows.back().push_back(row[i].text.empty() ? PlainText(row[i].value) : row[i].text);
          }
        }
        out += FormatTable(headings, rows, right, indent + (node.label.empty() ? 0 : 2), style);
        break;
      }
      case Section::Node::Kind::kElements:
        if (!node.label.empty()) out += margin + style.Heading(node.label) + "\n";
        AppendElements(out, node.elements, style, width, indent + (node.label.empty() ? 0 : 2));
        break;
      case Section::Node::Kind::kNote:
        out += margin + style.Warning("note: " + node.text) + "\n";
        break;
    }
  }
}

}  // namespace

std::string ReportText(const Section& report, const Style& style, size_t width) {
  std::string out;
  if (!report.title().empty()) out += style.Heading(report.title()) + "\n";
  AppendSection(out, report, style, width, report.title().empty() ? 0 : 2);
  return out;
}

}  // namespace qlnmedia
