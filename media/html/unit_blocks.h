// The units of every picture, packed in blocks of pictures: a page unpacks the block of the picture that
// somebody looks at, and no other.
#ifndef MEDIA_HTML_UNIT_BLOCKS_H
#define MEDIA_HTML_UNIT_BLOCKS_H

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "units/units.h"

namespace qlnmedia::html {

// One unit as a page shows it.
struct ShownUnit {
  int type = 0;         // of the NAL header; of MPEG-2 the byte of the start code
  uint64_t offset = 0;  // of its start code or length in the packet
  uint64_t size = 0;    // from its header on
  ByteSpan first;       // its first bytes
  std::string text;     // of an SEI unit its messages, a line each; mostly empty
};

class UnitBlocks {
 public:
  static constexpr size_t kPictures = 256;  // of a block
  // The bytes of a unit that are shown: slices look alike.
  static constexpr size_t kSliceBytes = 8;
  static constexpr size_t kOtherBytes = 32;

  // The units of the next picture. Texts that the block holds already are not held twice.
  void Add(const std::vector<ShownUnit>& units);
  // The blocks of all that was added, each in base64; the object is used up.
  std::vector<std::string> Finish();

 private:
  void Close();
  uint64_t PlaceOf(const std::string& text);

  Bytes rows_;  // of the open block
  std::vector<std::string> texts_;
  std::unordered_map<std::string, uint64_t> places_;  // of the texts, plus 1
  size_t pictures_ = 0;
  std::vector<std::string> blocks_;
};

}  // namespace qlnmedia::html

#endif
