// Lists the syntax elements of parsed records.

#include "inspect/elements.h"

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

namespace {

// The first bit in which two payloads differ, a missing bit counting as different; nothing if they are equal.
std::optional<size_t> FirstDifferentBit(const Bytes& a, const Bytes& b) {
  const size_t common = std::min(a.size(), b.size());
  for (size_t i = 0; i < common; ++i) {
    const unsigned difference = static_cast<unsigned>(a[i] ^ b[i]);
    if (difference == 0) continue;
    size_t bit = 0;
    while ((difference >> (7 - bit) & 1) == 0) ++bit;
    return i * 8 + bit;
  }
  if (a.size() == b.size()) return std::nullopt;
  return common * 8;
}

const Element* Find(const std::vector<Element>& elements, const std::string& name) {
  for (const Element& element : elements) {
    if (element.name == name) return &element;
  }
  return nullptr;
}

bool BeginsWith(std::string_view text, std::string_view start) {
  return text.substr(0, start.size()) == start;
}

// Records keep a few elements in front of others that the stream has first; this is where a name stands in
// the stream's order, given its place in the list.
size_t StreamPlace(const std::vector<Element>& elements, size_t place) {
  const std::string& name = elements[place].name;
  const auto placeOf = [&](std::string_view other) {
    for (size_t i = 0; i < elements.size(); ++i) {
      if (BeginsWith(elements[i].name, other)) return i;
    }
    return place;
  };
  const bool list = BeginsWith(name, "seq_scaling_list_present_flag") || BeginsWith(name, "ScalingList") ||
                    BeginsWith(name, "UseDefaultScalingMatrix");
  if (list) return placeOf("seq_scaling_matrix_present_flag") * 2 + 1;
  if (name == "vcl_hrd_parameters_present_flag") {
    size_t behind = place * 2;
    for (size_t i = place; i < elements.size(); ++i) {
      if (BeginsWith(elements[i].name, "nal_hrd.")) behind = i * 2 + 1;
    }
    return behind;
  }
  constexpr std::string_view kPredicted = ".inter_ref_pic_set_prediction_flag";
  if (name.size() > kPredicted.size() && name.substr(name.size() - kPredicted.size()) == kPredicted)
    return placeOf(name.substr(0, name.size() - kPredicted.size() + 1)) * 2;
  return place * 2 + (place > 0 && BeginsWith(name, "st_ref_pic_set") ? 1 : 0);
}

// The element of `was`, first in the stream's order, that another reading lacks or has with another value.
const Element* FirstReadOtherwise(const std::vector<Element>& was, const std::vector<Element>& other) {
  const Element* first = nullptr;
  size_t firstPlace = 0;
  for (size_t i = 0; i < was.size(); ++i) {
    if (was[i].name == "more_rbsp_data_present" || was[i].name == "rbsp_stop_one_bit") continue;
    const Element* const now = Find(other, was[i].name);
    if (now != nullptr && now->value == was[i].value) continue;
    const size_t place = StreamPlace(was, i);
    if (first != nullptr && place >= firstPlace) continue;
    first = &was[i];
    firstPlace = place;
  }
  return first;
}

}  // namespace

std::optional<ElementChange> FirstChange(Codec codec, const Bytes& before, const Bytes& after,
                                         const ElementLister& list) {
  const Bytes payload = Unescape(before);
  const std::optional<size_t> bit = FirstDifferentBit(payload, Unescape(after));
  if (!bit) return std::nullopt;
  const std::vector<Element> was = list(before);
  const std::vector<Element> back = after.empty() ? std::vector<Element>() : list(after);
  ElementChange change;
  if (*bit >= payload.size() * 8 || *bit < (codec == Codec::kH264 ? 8u : 16u)) return change;
  // Where it makes no difference what stands from that bit on, no element lies there.
  Bytes behind = payload;
  for (size_t i = *bit; i < behind.size() * 8; ++i) behind[i / 8] ^= static_cast<uint8_t>(0x80 >> i % 8);
  if (FirstReadOtherwise(was, list(Escape(behind))) == nullptr) return change;
  // Of values that are read over one another only the last is kept, and counts may be cut: where a bit
  // changes nothing, one of those in front of it, in the same code, changes its length.
  constexpr size_t kBitsBack = 12;
  std::vector<Element> other;
  const Element* first = nullptr;
  for (size_t stepsBack = 0; first == nullptr && stepsBack <= kBitsBack && stepsBack < *bit; ++stepsBack) {
    Bytes turned = payload;
    turned[(*bit - stepsBack) / 8] ^= static_cast<uint8_t>(0x80 >> (*bit - stepsBack) % 8);
    other = list(Escape(turned));
    first = FirstReadOtherwise(was, other);
  }
  if (first == nullptr) return change;
  // The flag of each scaling list stands right in front of that list.
  const std::string& flag = first->name;
  if (flag == "seq_scaling_list_present_flag" || flag == "pic_scaling_list_present_flag") {
    const Element* const now = Find(other, flag);
    for (size_t i = 0; i < first->value.size(); ++i) {
      if (now == nullptr || i >= now->value.size() || now->value[i] != first->value[i]) break;
      const std::string name =
          i < 6 ? fmt::format("ScalingList4x4[{}]", i) : fmt::format("ScalingList8x8[{}]", i - 6);
      const Element* const values = Find(was, name);
      const Element* const turnedValues = Find(other, name);
      if (values == nullptr || (turnedValues != nullptr && turnedValues->value == values->value)) continue;
      first = values;
      break;
    }
  }
  // Schedules behind the eighth are passed over: what is read otherwise stands behind a count that was cut.
  for (const char* block : {"nal_hrd.", "vcl_hrd."}) {
    const Element* const count = Find(was, std::string(block) + "cpb_cnt_minus1");
    if (BeginsWith(first->name, block) && count != nullptr && count->value == 7) first = count;
  }
  const Element* const written = Find(back, first->name);
  change.name = first->name;
  change.was = first->value;
  change.comesBack = written == nullptr ? Json(nullptr) : written->value;
  if (!change.was.is_array()) return change;
  // Of an array the first value that the turned bit reaches.
  const Element* const now = Find(other, first->name);
  size_t index = 0;
  while (now != nullptr && index + 1 < first->value.size() && index < now->value.size() &&
         now->value[index] == first->value[index])
    ++index;
  change.name += fmt::format("[{}]", index);
  change.was = first->value[index];
  change.comesBack =
      written != nullptr && index < written->value.size() ? written->value[index] : Json(nullptr);
  return change;
}

}  // namespace qlnmedia
