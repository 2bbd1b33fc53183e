// The parameter sets of a frame under the interlace rewrite: read, changed, written.
#ifndef QLNUTIL_INBAND_INTERLACE_SETS_H
#define QLNUTIL_INBAND_INTERLACE_SETS_H

#include <cstdint>

#include "qlnutil/qlnframe.h"
#include "qlnutil/qlnhevc.h"

namespace qln {

// The records live as long as the frame's rewrite and are zero at its start only: what a later set does not
// say is what an earlier one said. 58 kB, for the heap.
class InterlaceSets {
 public:
  // Reads the set of that type (kHevcNalVps, kHevcNalSps, kHevcNalPps) from `size` bytes at `data`, changes
  // what it says of scan and colour, and writes it to `output`, which has room for QLN_HEVC_UNIT_SIZE bytes.
  // A refused read is followed by the write of what the record holds. Returns the bytes written, 0 for none
  // and without memory.
  uint32_t Rewrite(uint32_t type, const uint8_t* data, uint32_t size, const DFrame& source,
                   const HevcSpsRecord& host, uint8_t* output);

  // Reads what was written, for the messages that go with it.
  void ReadBack(uint32_t type, const uint8_t* data, uint32_t size);

 private:
  struct Records {
    HevcVpsRecord vps;
    HevcSpsRecord sps;
    HevcPpsRecord pps;
  };

  // False without memory for the unit, the records then as they were.
  static bool Read(uint32_t type, const uint8_t* data, uint32_t size, Records* records);
  void ChangeVps(bool twoFields);
  void ChangeSps(bool twoFields);
  void SupplyColour(const DFrame& source, const HevcSpsRecord& host);

  Records working_ = {};
  Records readBack_ = {};
};

}  // namespace qln

#endif
