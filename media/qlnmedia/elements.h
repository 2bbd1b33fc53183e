/// @file elements.h
/// The syntax elements of a parameter set by the published syntax (ITU-T H.264 clause 7.3.2, H.265 clause
/// 7.3.2), each with its name, place, width and value; extensions included.
#ifndef QLNMEDIA_ELEMENTS_H
#define QLNMEDIA_ELEMENTS_H

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "qlnmedia/api.h"
#include "qlnmedia/coded_stream.h"
#include "qlnmedia/error.h"

namespace qlnmedia {

/// One element as it stands in the unit.
struct SyntaxElement {
  std::string name;       ///< as published, with its indices: "cpb_size_value_minus1[0]"
  std::string structure;  ///< the syntax structure that it stands in, "vui_parameters"; empty for the set
  uint32_t position = 0;  ///< of its first bit, from the unit's first byte, emulation prevention removed
  uint32_t bits = 0;      ///< how many bits it has
  int64_t value = 0;      ///< signed elements as such; says nothing where `known` is false
  bool known = true;      ///< false for a run of bits that the syntax gives no meaning
};

/// All elements of one set, from its NAL header to the bit in front of the stop bit.
struct ParameterSetElements {
  std::vector<SyntaxElement> elements;  ///< in the order of the syntax table
  bool whole = false;                   ///< the syntax was followed to the stop bit
  std::string endedAt;                  ///< where it was not: the element at which it broke off; may be empty
};

/// Takes the parameter sets of one stream apart. For one thread at a time.
class QLNMEDIA_API ElementReader {
 public:
  /// @param codec kH264 or kHevc
  /// @throws Error for another codec
  explicit ElementReader(VideoCodec codec);
  ~ElementReader();
  /// Takes over what the other one has read; the other is of no use afterwards.
  /// @{
  ElementReader(ElementReader&& other) noexcept;
  ElementReader& operator=(ElementReader&& other) noexcept;
  /// @}

  /// Lists the elements of a unit: SPS or PPS, of H.264 also SPS extension and subset SPS, of HEVC also VPS.
  /// The reader remembers the H.264 SPS that it was shown, by which a PPS behind them is read.
  ///
  /// @param unit  a whole unit from its NAL header on, without start code or length; looked at during the
  /// call
  /// @return no elements for a unit of another type. Whatever the bytes, nothing is thrown but
  /// std::bad_alloc.
  ParameterSetElements Read(std::span<const uint8_t> unit);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace qlnmedia

#endif
