/// @file value_names.h
/// The names that people write for colour and mastering displays, with what they stand for.
#ifndef QLNMEDIA_VALUE_NAMES_H
#define QLNMEDIA_VALUE_NAMES_H

#include <string>
#include <vector>

#include "qlnmedia/api.h"
#include "qlnmedia/stream_values.h"

namespace qlnmedia {

/// A mastering display that has a name.
struct NamedDisplay {
  const char* name;          ///< static storage
  MasteringDisplay display;  ///< its primaries and luminances
  std::string text;          ///< as ParseMasteringDisplay reads it, in numbers
};
/// Those that ParseMasteringDisplay knows, in a fixed order.
QLNMEDIA_API std::vector<NamedDisplay> NamedDisplays();

/// Codes of colour that have a name together, and what ITU-T H.273 calls each of them.
struct NamedColour {
  const char* name;   ///< static storage
  ColourCodes codes;  ///< of ITU-T H.273
  /// Their names in ITU-T H.273.
  /// @{
  std::string primaries, transfer, matrix;
  /// @}
};
/// Those that ParseColour knows, in a fixed order.
QLNMEDIA_API std::vector<NamedColour> NamedColours();

}  // namespace qlnmedia

#endif
