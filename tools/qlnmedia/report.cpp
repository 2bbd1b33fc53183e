// The report model's two printers.

#include "qlnmedia/report.h"

#include <fmt/format.h>

#include <algorithm>

namespace qlnmedia {

struct Section::Node {
  enum class Kind { kFact, kSection, kListItem, kTable, kElements, kNote };
  Kind kind;
  std::string key;
  std::string label;
  Json value;
  std::string text;
  std::string note;
  Section section;
  std::vector<Column> columns;
  std::vector<std::vector<Cell>> rows;
  std::vector<Element> elements;
};

void Section::Add(std::string key, std::string label, Json value, std::string text, std::string note) {
  auto node = std::make_shared<Node>();
  node->kind = Node::Kind::kFact;
  node->key = std::move(key);
  node->label = std::move(label);
  node->text = text.empty() ? PlainText(value) : std::move(text);
  node->value = std::move(value);
  node->note = std::move(note);
  nodes_.push_back(std::move(node));
}

Section& Section::AddSection(std::string key, std::string title) {
  auto node = std::make_shared<Node>();
  node->kind = Node::Kind::kSection;
  node->key = std::move(key);
  node->section = Section(std::move(title));
  nodes_.push_back(node);
  return node->section;
}

Section& Section::AddToList(std::string key, std::string title) {
  Section& section = AddSection(std::move(key), std::move(title));
  nodes_.back()->kind = Node::Kind::kListItem;
  return section;
}

void Section::AddTable(std::string key, std::string title, std::vector<Column> columns,
                       std::vector<std::vector<Cell>> rows) {
  auto node = std::make_shared<Node>();
  node->kind = Node::Kind::kTable;
  node->key = std::move(key);
  node->label = std::move(title);
  node->columns = std::move(columns);
  node->rows = std::move(rows);
  nodes_.push_back(std::move(node));
}

void Section::AddElements(std::string key, std::string title, std::vector<Element> elements) {
  auto node = std::make_shared<Node>();
  node->kind = Node::Kind::kElements;
  node->key = std::move(key);
  node->label = std::move(title);
  node->elements = std::move(elements);
  nodes_.push_back(std::move(node));
}

void Section::AddNote(std::string text) {
  auto node = std::make_shared<Node>();
  node->kind = Node::Kind::kNote;
  node->text = std::move(text);
  nodes_.push_back(std::move(node));
}

std::string PlainText(const Json& value) {
  if (value.is_string()) return Printable(value.get<std::string>());
  if (value.is_boolean()) return value.get<bool>() ? "yes" : "no";
  if (value.is_null()) return "-";
  if (value.is_array()) {
    std::string text;
    for (const Json& item : value) text += (text.empty() ? "" : " ") + PlainText(item);
    return text.empty() ? "-" : text;
  }
  return value.dump();
}

Json Section::ToJson() const {
  Json json = Json::object();
  for (const auto& node : nodes_) {
    switch (node->kind) {
      case Node::Kind::kFact:
        json[node->key] = node->value;
        break;
      case Node::Kind::kSection:
        json[node->key] = node->section.ToJson();
        break;
      case Node::Kind::kListItem:
        json[node->key].push_back(node->section.ToJson());
        break;
      case Node::Kind::kTable: {
        Json& rows = json[node->key] = Json::array();
        for (const auto& row : node->rows) {
          Json object = Json::object();
          for (size_t i = 0; i < node->columns.size() && i < row.size(); ++i)
            object[node->columns[i].key] = row[i].value;
          rows.push_back(std::move(object));
        }
        break;
      }
      case Node::Kind::kElements: {
        Json& elements = json[node->key] = Json::object();
        for (const Element& element : node->elements) elements[element.name] = element.value;
        for (const Element& element : node->elements) {
          if (!element.note.empty()) json[node->key + "_notes"][element.name] = element.note;
        }
        break;
      }
      case Node::Kind::kNote:
        json["notes"].push_back(node->text);
        break;
    }
  }
  return json;
}

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

}  // namespace

void Section::AppendText(std::string& out, const Style& style, size_t width, size_t indent) const {
  const std::string margin(indent, ' ');
  for (size_t n = 0; n < nodes_.size(); ++n) {
    const Node& node = *nodes_[n];
    switch (node.kind) {
      case Node::Kind::kFact: {
        // Neighbouring facts share one column for their values.
        size_t labelWidth = 0;
        size_t last = n;
        for (; last < nodes_.size() && nodes_[last]->kind == Node::Kind::kFact; ++last)
          labelWidth = std::max(labelWidth, ColumnsOf(nodes_[last]->label));
        for (; n < last; ++n) {
          const Node& fact = *nodes_[n];
          out += margin + style.Name(PadRight(fact.label, labelWidth)) + "  " + fact.text;
          if (!fact.note.empty()) out += "  " + style.Warning("(" + fact.note + ")");
          out += '\n';
        }
        --n;
        break;
      }
      case Node::Kind::kSection:
      case Node::Kind::kListItem:
        if (indent == 0 && !out.empty()) out += '\n';
        out += margin + style.Heading(node.section.title_) + "\n";
        node.section.AppendText(out, style, width, indent + 2);
        break;
      case Node::Kind::kTable: {
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
      case Node::Kind::kElements:
        if (!node.label.empty()) out += margin + style.Heading(node.label) + "\n";
        AppendElements(out, node.elements, style, width, indent + (node.label.empty() ? 0 : 2));
        break;
      case Node::Kind::kNote:
        out += margin + style.Warning("note: " + node.text) + "\n";
        break;
    }
  }
}

std::string Section::ToText(const Style& style, size_t width) const {
  std::string out;
  if (!title_.empty()) out += style.Heading(title_) + "\n";
  AppendText(out, style, width, title_.empty() ? 0 : 2);
  return out;
}

}  // namespace qlnmedia
