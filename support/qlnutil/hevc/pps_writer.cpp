// The PPS writer: all tile columns get the one width of the record, all rows the one height.

#include "qlnutil/hevc/parameter_set_writer.h"
#include "qlnutil/hevc/pps_syntax.h"

uint32_t qlnutilWrite_HEVC_PPS(const HevcPpsRecord* pps, uint8_t* output) {
  using namespace qln;
  if (pps == nullptr || output == nullptr) return 0;
  HevcUnitWriter unit(kHevcNalPps);
  HevcSetWriter coder{{unit.bits()}};
  PpsSyntax(coder, *pps);
  return unit.Finish(coder.bits, output);
}
