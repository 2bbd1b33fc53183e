// What has to be known of an access unit before it is edited: whether its bytes are whole, and its parameter
// sets.
#ifndef GST_ACCESS_UNIT_H
#define GST_ACCESS_UNIT_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "qlnmedia/coded_stream.h"

namespace qlngst {

// The parameter sets of a byte stream, as an editor that begins in the middle needs them in front.
class KeptSets {
 public:
  void Take(const uint8_t* unit, size_t size);
  void Clear() { sets_.clear(); }
  // With start codes, the last of each in the order in which they came.
  std::vector<uint8_t> Bytes() const;

 private:
  std::vector<std::vector<uint8_t>> sets_;
};

struct AccessUnitFacts {
  std::string damage;  // what is wrong with its bytes; empty for nothing
  // Decoding begins anew, and what follows in coding order is shown later: an IDR picture.
  bool idr = false;
};

// Looks at the units up to the first slice. `lengthBytes` 0 is start codes, whose sets go into `kept`.
AccessUnitFacts LookAt(qlnmedia::VideoCodec codec, int lengthBytes, const uint8_t* data, size_t size,
                       KeptSets& kept);

}  // namespace qlngst

#endif
