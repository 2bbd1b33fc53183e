// Turns sections into the tree that hosts walk, which knows no JSON library.

#include <utility>

#include "inspect/inspect.h"

namespace qlnmedia {

namespace {

// Foreign strings may hold bytes that are no UTF-8.
std::string JsonText(const Json& value, int indent = -1) {
  return value.dump(indent, ' ', false, Json::error_handler_t::replace);
}

ReportItem FactOf(ReportItem::Kind kind, std::string key, std::string label, const Json& value,
                  std::string text, std::string note = {}) {
  ReportItem item;
  item.kind = kind;
  item.key = std::move(key);
  item.label = std::move(label);
  item.value = JsonText(value);
  item.text = std::move(text);
  item.note = std::move(note);
  return item;
}

ReportItem TableOf(const Section::Node& node) {
  ReportItem table;
  table.kind = ReportItem::Kind::kTable;
  for (const Column& column : node.columns)
    table.columns.push_back({column.key, column.jsonOnly ? "" : column.heading, column.right});
  for (const auto& row : node.rows) {
    ReportItem& item = table.children.emplace_back();
    item.kind = ReportItem::Kind::kRow;
    for (size_t i = 0; i < row.size() && i < node.columns.size(); ++i) {
      const Column& column = node.columns[i];
      item.children.push_back(FactOf(ReportItem::Kind::kFact, column.key,
                                     column.jsonOnly ? "" : column.heading, row[i].value,
                                     row[i].text.empty() ? PlainText(row[i].value) : row[i].text));
    }
  }
  return table;
}

ReportItem ElementsOf(const Section::Node& node) {
  ReportItem elements;
  elements.kind = ReportItem::Kind::kElements;
  for (const Element& element : node.elements)
    elements.children.push_back(FactOf(ReportItem::Kind::kElement, element.name, element.name, element.value,
                                       PlainText(element.value), element.note));
  return elements;
}

ReportItem ItemWithoutPart(const Section::Node& node) {
  ReportItem item;
  switch (node.kind) {
    case Section::Node::Kind::kFact:
      return FactOf(ReportItem::Kind::kFact, node.key, node.label, node.value, node.text, node.note);
    case Section::Node::Kind::kSection:
    case Section::Node::Kind::kListItem:
      item = TreeOf(node.section);
      item.inList = node.kind == Section::Node::Kind::kListItem;
      item.key = node.key;
      return item;
    case Section::Node::Kind::kTable:
      item = TableOf(node);
      break;
    case Section::Node::Kind::kElements:
      item = ElementsOf(node);
      break;
    case Section::Node::Kind::kNote:
      item.kind = ReportItem::Kind::kNote;
      item.text = node.text;
      return item;
    case Section::Node::Kind::kLine:
      item.kind = ReportItem::Kind::kLine;
      item.label = node.label;
      item.text = node.text;
      return item;
  }
  item.key = node.key;
  item.label = node.label;
  return item;
}

ReportItem ItemOf(const Section::Node& node) {
  ReportItem item = ItemWithoutPart(node);
  item.part = node.part;
  return item;
}

}  // namespace

ReportItem TreeOf(const Section& section) {
  ReportItem item;
  item.label = section.title();
  for (const auto& node : section.nodes()) item.children.push_back(ItemOf(*node));
  return item;
}

struct Report::Contents {
  Section section;
  ReportItem root;
};

const ReportItem& Report::root() const { return contents_->root; }

std::string Report::ToJson(int indent) const { return JsonText(contents_->section.ToJson(), indent); }

Report ReportOf(Section section) {
  auto contents = std::make_shared<Report::Contents>();
  contents->section = std::move(section);
  contents->root = TreeOf(contents->section);
  return Report(std::move(contents));
}

}  // namespace qlnmedia
