// Lists the syntax elements of parsed records.

#include "qlnmedia/elements.h"

#include <fmt/format.h>

#include <algorithm>

namespace qlnmedia {

namespace {

uint32_t WordAt(const void* record, uint32_t word) {
  uint32_t value;
  std::memcpy(&value, static_cast<const uint8_t*>(record) + size_t{word} * 4, 4);
  return value;
}

Json WordJson(uint32_t value, bool isSigned) {
  if (isSigned) return static_cast<int32_t>(value);
  return value;
}

// Entries of one list in a field that holds several.
uint32_t ListSize(std::string_view name) {
  if (name == "ScalingList4x4") return 16;
  if (name == "ScalingList8x8") return 64;
  return 0;
}

}  // namespace

std::vector<Element> PresentElements(std::span<const qln::RecordField> fields, const void* zeroed,
                                     const void* filled) {
  std::vector<Element> elements;
  const auto present = [&](uint32_t word) { return WordAt(zeroed, word) == WordAt(filled, word); };
  const auto append = [&](std::string name, const qln::RecordField& field, uint32_t first, uint32_t count) {
    uint32_t used = count;
    while (used > 0 && !present(first + used - 1)) --used;
    if (used == 0) return;
    if (field.count == 1) {
      elements.push_back({std::move(name), WordJson(WordAt(zeroed, first), field.isSigned), {}});
      return;
    }
    Json values = Json::array();
    for (uint32_t i = 0; i < used; ++i) {
      values.push_back(present(first + i) ? WordJson(WordAt(zeroed, first + i), field.isSigned)
                                          : Json(nullptr));
    }
    elements.push_back({std::move(name), std::move(values), {}});
  };
  for (const qln::RecordField& field : fields) {
    const uint32_t listSize = ListSize(field.name);
    if (listSize == 0) {
      append(field.name, field, field.word, field.count);
      continue;
    }
    for (uint32_t list = 0; list * listSize < field.count; ++list)
      append(fmt::format("{}[{}]", field.name, list), field, field.word + list * listSize, listSize);
  }
  return elements;
}

void NoteElement(std::vector<Element>& elements, std::string_view name, std::string note) {
  for (Element& element : elements) {
    if (element.name == name) element.note = std::move(note);
  }
}

bool HasElement(const std::vector<Element>& elements, std::string_view name) {
  return std::any_of(elements.begin(), elements.end(),
                     [name](const Element& element) { return element.name == name; });
}

std::string FirstDifference(std::span<const qln::RecordField> fields, const void* before, const void* after) {
  for (const qln::RecordField& field : fields) {
    for (uint32_t i = 0; i < field.count; ++i) {
      const uint32_t was = WordAt(before, field.word + i);
      const uint32_t is = WordAt(after, field.word + i);
      if (was == is) continue;
      const std::string name = field.count == 1 ? field.name : fmt::format("{}[{}]", field.name, i);
      return fmt::format("{} was {}, comes back as {}", name, PlainText(WordJson(was, field.isSigned)),
                         PlainText(WordJson(is, field.isSigned)));
    }
  }
  return {};
}

}  // namespace qlnmedia
