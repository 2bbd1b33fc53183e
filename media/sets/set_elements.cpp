// Lists the elements of parameter sets.

#include "sets/set_elements.h"

#include <algorithm>
#include <map>
#include <utility>

#include "sets/h264_pps_syntax.h"
#include "sets/h264_sps_syntax.h"
#include "sets/h264_subset_sps_syntax.h"
#include "sets/hevc_pps_syntax.h"
#include "sets/hevc_sps_syntax.h"
#include "sets/hevc_vps_syntax.h"
#include "sets/sps_facts.h"

namespace qlnmedia {

namespace {

// More than the largest set that makes sense, a PPS with a slice group map of the largest picture.
constexpr size_t kMostElements = 150000;
constexpr size_t kMostStructures = 30000;

class ListSink {
 public:
  explicit ListSink(SetElements& to) : to_(to) {
    to_.structures.push_back({});
    open_.push_back(0);
  }
  void Enter(std::string_view name, int index) {
    // Past the limit the set is out of room, which the next element tells.
    if (to_.structures.size() < kMostStructures) to_.structures.push_back({name, index, open_.back()});
    open_.push_back(static_cast<uint16_t>(to_.structures.size() - 1));
  }
  void Leave() { open_.pop_back(); }
  bool Take(const SetElement& element) {
    if (to_.elements.size() >= kMostElements || to_.structures.size() >= kMostStructures) return false;
    to_.elements.push_back(element);
    to_.elements.back().structure = open_.back();
    return true;
  }

 private:
  SetElements& to_;
  std::vector<uint16_t> open_;
};

using Lister = SyntaxReader<ListSink>;

void ListH264(Lister& in, int type, const ChromaFormats& formats, ByteSpan unit) {
  if (type == 7) {
    H264Sps sps;
    ReadH264Sps(in, sps);
  } else if (type == 8) {
    NoSink none;
    SyntaxReader<NoSink> front(unit, none);
    ReadH264NalHeader(front);
    front.ue("pic_parameter_set_id");
    H264Pps pps;
    ReadH264Pps(in, formats.Of(front.ue("seq_parameter_set_id")), pps);
  } else if (type == 13) {
    ReadH264SpsExtension(in);
  } else if (type == 15) {
    H264Sps sps;
    ReadH264SubsetSps(in, sps);
  }
}

void ListHevc(Lister& in, int type) {
  if (type == 32) {
    HevcVps vps;
    ReadHevcVps(in, vps);
  } else if (type == 33) {
    HevcSps sps;
    ReadHevcSps(in, sps);
  } else if (type == 34) {
    HevcPps pps;
    ReadHevcPps(in, pps);
  }
}

}  // namespace

const SetElement* SetElements::Find(std::string_view name, std::initializer_list<uint32_t> index) const {
  for (const SetElement& element : elements) {
    if (element.name == name &&
        (index.size() == 0 || std::equal(index.begin(), index.end(), element.index.begin(),
                                         element.index.begin() + element.indices)))
      return &element;
  }
  return nullptr;
}

const SetElement* SetElements::Behind(const SetElement* element) const {
  return element == &elements.back() ? nullptr : element + 1;
}

std::string NameWithIndices(const SetElement& element) {
  std::string name(element.name);
  for (size_t i = 0; i < element.indices; ++i) {
    name += '[';
    name += std::to_string(element.index[i]);
    name += ']';
  }
  return name;
}

std::vector<ElementGroup> GroupElements(const SetElements& set) {
  std::vector<ElementGroup> groups;
  std::map<std::pair<uint16_t, std::string_view>, size_t> places;
  for (const SetElement& element : set.elements) {
    const auto [place, added] = places.try_emplace({element.structure, element.name}, groups.size());
    if (added) groups.push_back({element.name, element.structure, {}});
    groups[place->second].elements.push_back(&element);
  }
  return groups;
}

void ChromaFormats::Take(Codec codec, ByteSpan unit) {
  if (codec != Codec::kH264 || UnitType(codec, unit) != 7) return;
  const std::optional<SpsFacts> sps = ReadSpsFacts(codec, unit);
  if (sps && sps->id < formats_.size())
    formats_[sps->id] = static_cast<uint8_t>(std::min<uint32_t>(sps->chromaFormat, 255));
}

uint32_t ChromaFormats::Of(uint32_t seq_parameter_set_id) const {
  return seq_parameter_set_id < formats_.size() ? formats_[seq_parameter_set_id] : 1;
}

bool HasSetSyntax(Codec codec, int unitType) {
  if (codec == Codec::kH264) return unitType == 7 || unitType == 8 || unitType == 13 || unitType == 15;
  return unitType >= 32 && unitType <= 34;
}

SetElements ListSetElements(Codec codec, ByteSpan unit, const ChromaFormats& formats) {
  return ListElementsAs(codec, UnitType(codec, unit), unit, formats);
}

SetElements ListElementsAs(Codec codec, int type, ByteSpan unit, const ChromaFormats& formats) {
  SetElements set;
  ListSink sink(set);
  if (!HasSetSyntax(codec, type)) return set;
  Lister in(unit, sink);
  if (codec == Codec::kH264) {
    ListH264(in, type, formats, unit);
  } else {
    ListHevc(in, type);
  }
  set.end = in.end();
  set.endedAt = in.endedAt();
  set.endPosition = in.position();
  set.stop = in.stop();
  set.factsWhole = in.factsWhole();
  return set;
}

}  // namespace qlnmedia
