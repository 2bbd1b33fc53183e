// The report model and its JSON form.

#include "base/report.h"

#include <utility>

#include "base/text.h"

namespace qlnmedia {

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

void Section::AddLine(std::string label, std::string text) {
  auto node = std::make_shared<Node>();
  node->kind = Node::Kind::kLine;
  node->label = std::move(label);
  node->text = Printable(text);
  nodes_.push_back(std::move(node));
}

void Section::AddValue(std::string key, Json value) { Add(std::move(key), {}, std::move(value)); }

void Section::MarkLast(ReportPart part) { nodes_.back()->part = part; }

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
        // Names are unique within their list, which may be long: they are not looked for.
        for (const Element& element : node->elements)
          elements.get_ref<Json::object_t&>().Container::emplace_back(element.name, element.value);
        for (const Element& element : node->elements) {
          if (!element.note.empty()) json[node->key + "_notes"][element.name] = element.note;
        }
        break;
      }
      case Node::Kind::kNote:
        json["notes"].push_back(node->text);
        break;
      case Node::Kind::kLine:
        break;
    }
  }
  return json;
}

}  // namespace qlnmedia
