// The face that hosts get of the walk through parameter sets.

#include "base/error.h"
#include "qlnmedia/elements.h"
#include "sets/set_elements.h"

namespace qlnmedia {

struct ElementReader::State {
  Codec codec;
  ChromaFormats formats;
};

ElementReader::ElementReader(VideoCodec codec) {
  if (codec != VideoCodec::kH264 && codec != VideoCodec::kHevc)
    throw Error("elements", "parameter sets of H.264 and HEVC are read, and no others");
  state_.reset(new State{codec == VideoCodec::kH264 ? Codec::kH264 : Codec::kHevc, {}});
}

ElementReader::~ElementReader() = default;
ElementReader::ElementReader(ElementReader&& other) noexcept = default;
ElementReader& ElementReader::operator=(ElementReader&& other) noexcept = default;

ParameterSetElements ElementReader::Read(std::span<const uint8_t> unit) {
  ParameterSetElements out;
  if (!HasSetSyntax(state_->codec, UnitType(state_->codec, unit))) return out;
  const SetElements set = ListSetElements(state_->codec, unit, state_->formats);
  state_->formats.Take(state_->codec, unit);
  out.whole = set.whole();
  if (!out.whole) out.endedAt = set.endedAt;
  for (const SetElement& element : set.elements)
    out.elements.push_back({NameWithIndices(element), std::string(set.structures[element.structure].name),
                            element.position, element.bits, element.value, !element.run});
  return out;
}

}  // namespace qlnmedia
