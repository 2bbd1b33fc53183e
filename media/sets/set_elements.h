// All syntax elements of one parameter set, in the order of the bits, with the structures that they stand in.
#ifndef MEDIA_SETS_SET_ELEMENTS_H
#define MEDIA_SETS_SET_ELEMENTS_H

#include <array>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "sets/syntax_reader.h"
#include "units/units.h"

namespace qlnmedia {

// A syntax structure of the set: the set itself, vui_parameters(), one of several hrd_parameters().
struct SetStructure {
  std::string_view name;  // as published, without brackets; empty for the set itself
  int index = -1;         // which of several, counted as the standard does; -1 where there is one
  uint16_t parent = 0;    // the structure that it stands in; 0, the set, stands in itself
};

// The elements begin with those of the NAL header and end in front of the stop bit.
struct SetElements {
  std::vector<SetElement> elements;
  std::vector<SetStructure> structures;  // the set first
  WalkEnd end = WalkEnd::kWhole;
  std::string_view endedAt;  // the element at which a walk ended that is not whole
  uint32_t endPosition = 0;  // of the first bit that no element holds; behind a whole walk it is `stop`,
                             // unless bits follow that the syntax does not know
  uint32_t stop = 0;         // the position of the stop bit; 0 for a unit without one
  bool factsWhole = false;   // the walk came past the last element that facts are read from

  // The first element of that name (and those indices); null if there is none.
  const SetElement* Find(std::string_view name, std::initializer_list<uint32_t> index = {}) const;
  // Behind the element: what follows it; null at the end.
  const SetElement* Behind(const SetElement* element) const;
  bool whole() const { return end == WalkEnd::kWhole && endPosition == stop; }
};

// "cpb_size_value_minus1[0]"
std::string NameWithIndices(const SetElement& element);

// The elements of one name within one structure: a single one, or an array.
struct ElementGroup {
  std::string_view name;
  uint16_t structure = 0;
  std::vector<const SetElement*> elements;  // in the order of the bits
  bool array() const { return elements.front()->indices > 0; }
};
// The elements of each structure by their names, in the order in which the names first occur.
std::vector<ElementGroup> GroupElements(const SetElements& set);

// What a picture parameter set of H.264 needs of the sequence parameter sets in front of it.
class ChromaFormats {
 public:
  // Any unit; those that are no SPS, or break off, are passed over.
  void Take(Codec codec, ByteSpan unit);
  // chroma_format_idc of the SPS of that number; 1 for one that was not there.
  uint32_t Of(uint32_t seq_parameter_set_id) const;

 private:
  std::array<uint8_t, 32> formats_ = {1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,
                                      1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1};
};

// True for units that ListSetElements can take apart: SPS, PPS, and of H.264 SPS extension and subset SPS, of
// HEVC VPS.
bool HasSetSyntax(Codec codec, int unitType);
// Takes a set apart. Nothing is listed of a unit that is none.
SetElements ListSetElements(Codec codec, ByteSpan unit, const ChromaFormats& formats = {});
// Takes a unit apart as a set of the given type, whatever its header says.
SetElements ListElementsAs(Codec codec, int unitType, ByteSpan unit, const ChromaFormats& formats = {});

}  // namespace qlnmedia

#endif
