// One model of a report for two readers: people, and programs, who get JSON. Whoever fills a report says for
// each fact its JSON key and value and, where people read it differently, its label and text; what either
// form shows can therefore not drift from the other.
#ifndef MEDIA_BASE_REPORT_H
#define MEDIA_BASE_REPORT_H

#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "qlnmedia/inspect.h"

namespace qlnmedia {

using Json = nlohmann::ordered_json;

// Null for an empty text.
inline Json TextOrNull(const std::string& text) { return text.empty() ? Json(nullptr) : Json(text); }

// One syntax element by its published name; an array element holds a JSON array.
struct Element {
  std::string name;
  Json value;
  std::string note;  // said behind the value; empty mostly
};

// One column of a table.
struct Column {
  std::string key;
  std::string heading;
  bool right = false;     // numbers flush right
  bool jsonOnly = false;  // not shown to people
};

// One cell: its JSON value and, where that reads badly, its text.
struct Cell {
  Cell(Json v, std::string t = {}) : value(std::move(v)), text(std::move(t)) {}
  Json value;
  std::string text;
};

// A section of a report; children keep the order in which they were added, and the references that the Add
// functions return stay valid as long as the section.
class Section {
 public:
  explicit Section(std::string title = {}) : title_(std::move(title)) {}

  // A fact. `text` is what people read, the plain form of the value if it is empty; `note` stands behind it.
  void Add(std::string key, std::string label, Json value, std::string text = {}, std::string note = {});
  // A section inside this one.
  Section& AddSection(std::string key, std::string title);
  // One more section in the array `key`.
  Section& AddToList(std::string key, std::string title);
  // A table: an array of objects in JSON. Each row has one cell a column.
  void AddTable(std::string key, std::string title, std::vector<Column> columns,
                std::vector<std::vector<Cell>> rows);
  // Syntax elements, no two of one name: an object in JSON, with the notes in an object of their own.
  void AddElements(std::string key, std::string title, std::vector<Element> elements);
  // Something that a reader should not miss; the JSON form keeps them in the array "notes".
  void AddNote(std::string text);
  // A line for people alone, worded from values that AddValue gives to programs.
  void AddLine(std::string label, std::string text);
  // A value for programs alone.
  void AddValue(std::string key, Json value);
  // Says what the entry that was added last belongs to; all entries are details unless something is said.
  void MarkLast(ReportPart part);

  Json ToJson() const;

  // What a printer walks, in the order in which it was added.
  struct Node;
  const std::string& title() const { return title_; }
  const std::vector<std::shared_ptr<Node>>& nodes() const { return nodes_; }

 private:
  std::string title_;
  std::vector<std::shared_ptr<Node>> nodes_;
};

// One entry of a section.
struct Section::Node {
  enum class Kind { kFact, kSection, kListItem, kTable, kElements, kNote, kLine };
  Kind kind;
  ReportPart part = ReportPart::kDetails;
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

// The text that people read for a JSON value: strings without quotes, booleans as yes and no.
std::string PlainText(const Json& value);

}  // namespace qlnmedia

#endif
