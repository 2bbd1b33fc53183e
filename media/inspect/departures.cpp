// Holds the words of a record against the elements of the stream by their names, and two units against each
// other bit by bit.

#include "inspect/departures.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <set>

#include "inspect/published_elements.h"

namespace qlnmedia {

namespace {

// What the standards infer for elements that are absent.
std::optional<int64_t> InferredValue(Codec codec, const std::string& name) {
  if (codec != Codec::kH264) return {};
  if (name == "chroma_format_idc") return 1;
  if (name == "bit_depth_luma_minus8" || name == "bit_depth_chroma_minus8") return 0;
  return {};
}

// The last value of arrays within arrays.
const Json& LastOf(const Json& value) {
  return value.is_array() && !value.empty() ? LastOf(value.back()) : value;
}

size_t CountOf(const Json& value) {
  if (!value.is_array()) return value.is_null() ? 0 : 1;
  size_t count = 0;
  for (const Json& item : value) count += CountOf(item);
  return count;
}

// Whether a record's word or words say what the stream does.
bool Same(const Json& record, const Json& stream) {
  if (record == stream) return true;
  if (record.is_array() == stream.is_array()) return false;
  return CountOf(record) == 1 && CountOf(stream) == 1 && LastOf(record) == LastOf(stream);
}

// Whether the record keeps the last of several values.
bool KeepsTheLast(const Json& record, const Json& stream) {
  return CountOf(record) == 1 && CountOf(stream) > 1 && LastOf(record) == LastOf(stream);
}

// Where names stand in a list of elements.
class Places {
 public:
  explicit Places(const std::vector<Element>& elements) {
    for (size_t i = 0; i < elements.size(); ++i) {
      const std::string& key = elements[i].name;
      byKey_.emplace(key, i);
      const size_t dot = key.rfind('.');
      if (dot != std::string::npos) lastByName_[key.substr(dot + 1)] = i;
    }
  }
  // By its key, or the last of that name that stands in a structure; words outside of any structure hold what
  // was read last.
  std::optional<size_t> Find(const std::string& key) const {
    if (const auto at = byKey_.find(key); at != byKey_.end()) return at->second;
    if (const auto at = lastByName_.find(key); at != lastByName_.end()) return at->second;
    return {};
  }

 private:
  std::map<std::string, size_t> byKey_;
  std::map<std::string, size_t> lastByName_;
};

std::string NameIn(const std::string& key) {
  const size_t dot = key.rfind('.');
  return dot == std::string::npos ? key : key.substr(dot + 1);
}

// Why the library writes an element otherwise, where it does so on purpose; empty for others.
std::string ReasonOf(Codec codec, const SetElement& element, const Element& group) {
  const std::string name(element.name);
  if (codec == Codec::kH264) {
    if (name == "delta_scale") return "scaling lists are written as values, not as differences";
    if (name.starts_with("offset_for_")) return "picture order offsets are kept as code numbers";
    if (name == "cpb_cnt_minus1" && element.value > 7) return "at most 8 HRD schedules are kept";
    if (name == "slice_group_id") return "slice group ids are not written";
    return {};
  }
  if (element.value > 0 &&
      (name == "init_qp_minus26" || name == "pps_cb_qp_offset" || name == "pps_cr_qp_offset" ||
       name == "pps_beta_offset_div2" || name == "pps_tc_offset_div2"))
    return "positive signed values are written with the library's own mapping";
  if (name.ends_with("ps_scaling_list_data_present_flag") && element.value == 1)
    return "scaling list data is not written";
  if (name.starts_with("scaling_list_"))
    return "of scaling list data the record keeps the last value of each kind";
  const bool subLayers = name.ends_with("max_dec_pic_buffering_minus1") ||
                         name.ends_with("max_num_reorder_pics") ||
                         name.ends_with("max_latency_increase_plus1");
  return subLayers && CountOf(group.value) > 1 ? "sub-layer values, of which one is kept" : "";
}

// The first bit in which two payloads differ, a missing bit counting as different; nothing if they are equal.
std::optional<uint64_t> FirstDifferentBit(const Bytes& a, const Bytes& b) {
  const size_t common = std::min(a.size(), b.size());
  for (size_t i = 0; i < common; ++i) {
    const unsigned difference = static_cast<unsigned>(a[i] ^ b[i]);
    if (difference == 0) continue;
    uint64_t bit = 0;
    while ((difference >> (7 - bit) & 1) == 0) ++bit;
    return uint64_t{i} * 8 + bit;
  }
  if (a.size() == b.size()) return std::nullopt;
  return uint64_t{common} * 8;
}

// Whether two units first differ in an emulation prevention byte that the second lacks. Where a 3 follows it,
// the difference shows behind that.
bool LacksEscape(const Bytes& source, const Bytes& written) {
  auto at = std::mismatch(source.begin(), source.end(), written.begin(), written.end()).first;
  if (at == source.end() || *at != 3) return false;
  while (at - source.begin() > 2 && at[-1] == 3) --at;
  return at - source.begin() >= 2 && at[-1] == 0 && at[-2] == 0;
}

// What is written otherwise where it is no element.
std::string ReasonBehind(const PublishedSet& published, uint64_t bit) {
  if (bit < published.set.stop) return "extension data is not written";
  if (bit < published.payload.size() * uint64_t{8}) return "zero bytes behind the set are not written";
  return "more is written than the set has";
}

const SetElement* ElementAt(const SetElements& set, uint64_t bit) {
  for (const SetElement& element : set.elements) {
    if (bit >= element.position && bit < uint64_t{element.position} + element.bits) return &element;
  }
  return nullptr;
}

constexpr const char* kEscapeLacks = "an emulation prevention byte near the end is not written";

// The value that a list holds of an element.
Json ValueOf(const SetElements& set, const SetElement& like, const SetElements& in) {
  const std::string name = PublishedName(in, like);
  for (const SetElement& element : set.elements) {
    if (element.name == like.name && PublishedName(set, element) == name) return element.value;
  }
  return nullptr;
}

}  // namespace

PublishedSet::PublishedSet(Codec itsCodec, const Bytes& itsUnit, const ChromaFormats& formats)
    : codec(itsCodec),
      unit(itsUnit),
      payload(Unescape(itsUnit)),
      set(ListSetElements(itsCodec, itsUnit, formats)),
      elements(PublishedElements(itsCodec, set, payload)) {}

std::vector<Departure> DeparturesOf(const PublishedSet& published, const LibraryRecord& record) {
  std::vector<Departure> found;
  if (!record.read) return found;
  const Places places(published.elements);
  std::multimap<size_t, Departure> inOrder;
  std::set<size_t> held;
  size_t last = 0;
  for (const Element& word : record.elements) {
    const std::optional<size_t> place = places.Find(word.name);
    if (!place) {
      const std::optional<int64_t> inferred = InferredValue(published.codec, word.name);
      if (!inferred || word.value != Json(*inferred))
        inOrder.emplace(last, Departure{word.name, word.value, nullptr});
      continue;
    }
    last = *place;
    held.insert(last);
    const Element& element = published.elements[last];
    if (Same(word.value, element.value)) continue;
    inOrder.emplace(
        last, Departure{element.name, word.value, element.value, KeepsTheLast(word.value, element.value)});
  }
  const std::set<std::string> names(record.names.begin(), record.names.end());
  for (size_t i = 0; i < published.elements.size(); ++i) {
    const Element& element = published.elements[i];
    if (held.contains(i) || (!names.contains(element.name) && !names.contains(NameIn(element.name))))
      continue;
    inOrder.emplace(i, Departure{element.name, nullptr, element.value});
  }
  for (auto& [place, departure] : inOrder) found.push_back(std::move(departure));
  return found;
}

std::optional<FirstChange> FirstChangeOf(const PublishedSet& published, const LibraryRecord& record,
                                         const std::vector<Departure>& departures,
                                         const ChromaFormats& formats) {
  if (record.written.empty() || record.written == published.unit) return {};
  FirstChange change;
  const std::optional<uint64_t> bit = FirstDifferentBit(published.payload, Unescape(record.written));
  if (!bit) {
    change.escapes = true;
    change.why = "emulation prevention";
    return change;
  }
  const bool lacksEscape = LacksEscape(published.unit, record.written);
  const SetElement* const element = ElementAt(published.set, *bit);
  if (element == nullptr) {
    change.why = lacksEscape ? kEscapeLacks : ReasonBehind(published, *bit);
    return change;
  }
  change.element = PublishedName(published.set, *element);
  change.was = element->value;
  change.comesBack =
      ValueOf(ListSetElements(published.codec, record.written, formats), *element, published.set);
  const std::string key = PublishedKey(published.set, *element);
  const auto group = std::find_if(published.elements.begin(), published.elements.end(),
                                  [&](const Element& one) { return one.name == key; });
  change.why = lacksEscape ? kEscapeLacks : ReasonOf(published.codec, *element, *group);
  if (!change.why.empty()) return change;
  const auto departure = std::find_if(departures.begin(), departures.end(),
                                      [&](const Departure& one) { return one.element == key; });
  const std::set<std::string> names(record.names.begin(), record.names.end());
  change.why = departure != departures.end()
                   ? departure->as.is_null()
                         ? "the library does not keep it"
                         : fmt::format("the library reads it as {}", PlainText(departure->as))
               : names.contains(key) || names.contains(NameIn(key))
                   ? "the library writes it otherwise than it reads it"
                   : "the library's record has no place for it";
  return change;
}

}  // namespace qlnmedia
